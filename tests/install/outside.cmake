# Builds the project in outside/ in one way, runs it and compares what it prints.
cmake_minimum_required(VERSION 3.25)
set(outside ${CMAKE_CURRENT_LIST_DIR}/outside)
file(REMOVE_RECURSE ${build})
file(MAKE_DIRECTORY ${build})

set(options_of_way "")
if(way STREQUAL no_registry)
    # A machine without Berkeley DB and libsodium: CMake finds neither, and their headers fail.
    set(way subproject)
    foreach(header db.h db_cxx.h ndbm.h sodium.h)
        file(WRITE ${build}/missing/${header} "#error ${header} is missing\n")
    endforeach()
    string(APPEND flags " -isystem ${build}/missing")
    set(options_of_way -D VANTRY_REGISTRY=OFF -D BERKELEY_DB_LIBRARY=BERKELEY_DB_LIBRARY-NOTFOUND
        -D SODIUM_LIBRARY=SODIUM_LIBRARY-NOTFOUND -D CMAKE_IGNORE_PATH=/usr/include)
endif()

if(way STREQUAL pkg-config)
    find_program(pkg_config pkg-config)
    if(NOT pkg_config)
        message("skipped: there is no pkg-config")
        return()
    endif()
    # The prefix alone, so that a copy installed on this system is not found.
    set(ENV{PKG_CONFIG_LIBDIR} ${prefix}/${libdir}/pkgconfig)
    execute_process(COMMAND ${pkg_config} --cflags --libs vantry
        OUTPUT_VARIABLE options COMMAND_ERROR_IS_FATAL ANY)
    separate_arguments(options UNIX_COMMAND "${options}")
    separate_arguments(flags UNIX_COMMAND "${flags}")
    execute_process(
        COMMAND ${compiler} -std=c++17 ${flags} ${outside}/main.cpp ${outside}/own_names.cpp -o ${build}/outside ${options}
            -Wl,-rpath,${prefix}/${libdir}
        COMMAND_ERROR_IS_FATAL ANY)
    execute_process(
        COMMAND cc -std=c99 -pedantic -Wall -Wextra -Werror ${flags} ${source}/examples/letters.c
            -o ${build}/outside_c ${options} -Wl,-rpath,${prefix}/${libdir}
        COMMAND_ERROR_IS_FATAL ANY)
else()
    execute_process(
        COMMAND ${CMAKE_COMMAND} -G Ninja -S ${outside} -B ${build}
            -D way=${way} -D source=${source} -D CMAKE_PREFIX_PATH=${prefix}
            -D CMAKE_CXX_COMPILER=${compiler} "-DCMAKE_CXX_FLAGS=${flags}" "-DCMAKE_C_FLAGS=${flags}"
            ${options_of_way} -D CMAKE_LIBRARY_ARCHITECTURE=${architecture} -D CMAKE_INSTALL_LIBDIR=${libdir}
        COMMAND_ERROR_IS_FATAL ANY)
    execute_process(COMMAND ${CMAKE_COMMAND} --build ${build} COMMAND_ERROR_IS_FATAL ANY)
endif()

if(way STREQUAL subproject)
    execute_process(COMMAND ${CMAKE_COMMAND} --install ${build} --prefix ${prefix}
        COMMAND_ERROR_IS_FATAL ANY)
endif()

execute_process(COMMAND ${emulator} ${build}/outside
    OUTPUT_VARIABLE printed COMMAND_ERROR_IS_FATAL ANY)
string(CONCAT expected
    "1.0.0.79.0\n"
    "qtxGeneric: Invalid path size\n"
    "6HioErr: Cannot open file:  0\n"
    "5Hpack: File is not open in update mode 5\n"
    "6HioErr: refused 4\n"
    "df1a7dd9 1cb15872 3\n")
if(NOT printed STREQUAL expected)
    message(FATAL_ERROR "printed\n${printed}instead of\n${expected}")
endif()

execute_process(COMMAND ${emulator} ${build}/outside_c WORKING_DIRECTORY ${build}
    OUTPUT_VARIABLE printed COMMAND_ERROR_IS_FATAL ANY)
if(NOT printed STREQUAL "alpha: first\nb: the second letter\n")
    message(FATAL_ERROR "the program in C printed\n${printed}")
endif()
