# cmake --install: the libraries, their headers under include/Tavdevice, a CMake package
# (find_package(Tavdevice), target Tavdevice::Tavdevice) and a pkg-config file (tavdevice).
#
# Components: "runtime" is what the unit needs, "devel" what building an application needs beside it, and
# "tools" the virtual unit, where it is built.

include(CMakePackageConfigHelpers)

set(TAVDEVICE_INCLUDE_DIR ${CMAKE_INSTALL_INCLUDEDIR}/Tavdevice)
set(TAVDEVICE_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/Tavdevice)
set(TAVDEVICE_PKGCONFIG_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

foreach(library IN ITEMS Tavbase Tavsystem Tavdevice)
    target_include_directories(${library} INTERFACE $<INSTALL_INTERFACE:${TAVDEVICE_INCLUDE_DIR}>)
    # The libraries find each other beside themselves, wherever the tree is put.
    set_target_properties(${library} PROPERTIES INSTALL_RPATH "$ORIGIN")
endforeach()

install(TARGETS Tavbase Tavsystem Tavdevice
    EXPORT TavdeviceTargets
    LIBRARY
        DESTINATION ${CMAKE_INSTALL_LIBDIR}
        COMPONENT runtime
        NAMELINK_COMPONENT devel
    FILE_SET HEADERS
        DESTINATION ${TAVDEVICE_INCLUDE_DIR}
        COMPONENT devel)
install(EXPORT TavdeviceTargets
    NAMESPACE Tavdevice::
    DESTINATION ${TAVDEVICE_PACKAGE_DIR}
    COMPONENT devel)

write_basic_package_version_file(
    ${PROJECT_BINARY_DIR}/TavdeviceConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES
    cmake/TavdeviceConfig.cmake
    ${PROJECT_BINARY_DIR}/TavdeviceConfigVersion.cmake
    DESTINATION ${TAVDEVICE_PACKAGE_DIR}
    COMPONENT devel)

# The pkg-config file names its prefix by its own place, so that a tree that was installed to another
# prefix, staged under DESTDIR or moved is still described rightly.
cmake_path(ABSOLUTE_PATH TAVDEVICE_PKGCONFIG_DIR BASE_DIRECTORY ${CMAKE_INSTALL_PREFIX} NORMALIZE
    OUTPUT_VARIABLE pkgconfig_place)
cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX BASE_DIRECTORY ${pkgconfig_place}
    OUTPUT_VARIABLE TAVDEVICE_PC_TO_PREFIX)
# Absolute where the builder asked for an absolute directory.
cmake_path(ABSOLUTE_PATH CMAKE_INSTALL_LIBDIR BASE_DIRECTORY "\${prefix}" OUTPUT_VARIABLE TAVDEVICE_PC_LIBDIR)
cmake_path(ABSOLUTE_PATH TAVDEVICE_INCLUDE_DIR BASE_DIRECTORY "\${prefix}" OUTPUT_VARIABLE TAVDEVICE_PC_INCLUDEDIR)
configure_file(cmake/tavdevice.pc.in tavdevice.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/tavdevice.pc
    DESTINATION ${TAVDEVICE_PKGCONFIG_DIR}
    COMPONENT devel)
