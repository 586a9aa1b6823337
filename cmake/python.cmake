# The Python module is built for the system's own interpreter, not for one of a single user's that
# happens to come first in PATH. It is on where what it needs is there, and off where an interpreter
# could not load it: as 32-bit code, under sanitizers.
if(NOT Python_EXECUTABLE AND EXISTS /usr/bin/python3)
    set(Python_EXECUTABLE /usr/bin/python3)
endif()
if(VANTRY_DEVELOPER AND NOT CMAKE_CXX_FLAGS MATCHES "-m32|-fsanitize" AND NOT CMAKE_CROSSCOMPILING)
    set(PYBIND11_FINDPYTHON ON)
    find_package(pybind11 CONFIG QUIET)
endif()
option(VANTRY_PYTHON "Build the Python module" ${pybind11_FOUND})
set(VANTRY_PYTHON_DIR lib/python3/dist-packages CACHE STRING
    "Where Python modules are installed, below the prefix")
