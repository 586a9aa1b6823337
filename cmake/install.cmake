# `cmake --install` fills a prefix for find_package(Vantry) and `pkg-config vantry`.
include(CMakePackageConfigHelpers)

set(VANTRY_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/Vantry)

# Components: basekit and runtime (the shared libraries), development, tools, python.
function(vantry_install target component)
    install(TARGETS ${target} EXPORT VantryTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
            COMPONENT ${component} NAMELINK_COMPONENT development
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
        FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
endfunction()
vantry_install(basekit basekit)
vantry_install(vantry runtime)
install(EXPORT VantryTargets NAMESPACE Vantry:: DESTINATION ${VANTRY_CMAKE_DIR}
    COMPONENT development)

configure_package_config_file(cmake/VantryConfig.cmake.in
    ${PROJECT_BINARY_DIR}/VantryConfig.cmake INSTALL_DESTINATION ${VANTRY_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/VantryConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES
        ${PROJECT_BINARY_DIR}/VantryConfig.cmake
        ${PROJECT_BINARY_DIR}/VantryConfigVersion.cmake
    DESTINATION ${VANTRY_CMAKE_DIR} COMPONENT development)

# Install folders may be given relative to the prefix or absolute; pkg-config must find both.
cmake_path(ABSOLUTE_PATH CMAKE_INSTALL_LIBDIR BASE_DIRECTORY "\${prefix}"
    OUTPUT_VARIABLE VANTRY_PC_LIBDIR)
cmake_path(ABSOLUTE_PATH CMAKE_INSTALL_INCLUDEDIR BASE_DIRECTORY "\${prefix}"
    OUTPUT_VARIABLE VANTRY_PC_INCLUDEDIR)
# The prefix follows from the position of the file, since it may be chosen at installation. Not in a
# Debian package, nor if the folder of the libraries is absolute.
if(VANTRY_DEBIAN OR IS_ABSOLUTE ${CMAKE_INSTALL_LIBDIR})
    set(VANTRY_PC_PREFIX ${CMAKE_INSTALL_PREFIX})
else()
    file(RELATIVE_PATH up /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
    cmake_path(APPEND VANTRY_PC_PREFIX "\${pcfiledir}" ${up})
endif()
set(VANTRY_PC_LIBS_PRIVATE "-pthread -lstdc++")
if(VANTRY_REGISTRY)
    string(PREPEND VANTRY_PC_LIBS_PRIVATE "-ldb-5.3 -lsodium ")
endif()
set(VANTRY_PC_LIBS "")
if(NOT VANTRY_SHARED)
    set(VANTRY_PC_LIBS " ${VANTRY_PC_LIBS_PRIVATE}")
endif()
configure_file(cmake/vantry.pc.in ${PROJECT_BINARY_DIR}/vantry.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/vantry.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)

# The pages, in the folders that their links name, and the examples.
set(pages ${CMAKE_INSTALL_DOCDIR})
if(VANTRY_DEBIAN)
    set(pages ${CMAKE_INSTALL_DATADIR}/doc/libvantry-dev)
endif()
install(FILES README.md CHANGELOG.md CONTRIBUTING.md DESTINATION ${pages} COMPONENT development)
install(DIRECTORY doc bench examples python DESTINATION ${pages} COMPONENT development
    FILES_MATCHING PATTERN *.md PATTERN *.svg PATTERN examples/*.cpp PATTERN examples/*.py
    PATTERN examples/letters.*
    PATTERN vantry EXCLUDE PATTERN guard EXCLUDE PATTERN stores EXCLUDE PATTERN man EXCLUDE)
