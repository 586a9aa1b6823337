# The Python module is built for the system's interpreter, not for one that happens to come first in
# PATH. It is on if its dependencies are installed, and off if an interpreter could not load it: as
# 32-bit code, under sanitizers, without the registry.
if(NOT Python_EXECUTABLE AND EXISTS /usr/bin/python3)
    set(Python_EXECUTABLE /usr/bin/python3)
endif()
if(VANTRY_DEVELOPER AND VANTRY_REGISTRY AND NOT CMAKE_CXX_FLAGS MATCHES "-m32|-fsanitize" AND NOT CMAKE_CROSSCOMPILING)
    set(PYBIND11_FINDPYTHON ON)
    find_package(pybind11 CONFIG QUIET)
endif()
option(VANTRY_PYTHON "Build the Python module" ${pybind11_FOUND})
set(VANTRY_PYTHON_DIR lib/python3/dist-packages CACHE STRING
    "Where Python modules are installed, below the prefix")
