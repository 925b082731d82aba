# Installation and packaging: the shared object with its SONAME links (runtime), the public headers
# under <includedir>/hokkrv, a CMake package and a pkg-config file (development), and the Debian
# packages cpack builds from those two components.
include(CMakePackageConfigHelpers)

set(KRV_CMAKE_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/hokkrv)
set(KRV_PKGCONFIG_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

install(TARGETS hokkrv EXPORT hokkrvTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development)
install(DIRECTORY include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/hokkrv COMPONENT development)
install(EXPORT hokkrvTargets NAMESPACE hokkrv:: DESTINATION ${KRV_CMAKE_PACKAGE_DIR}
  COMPONENT development)

configure_package_config_file(cmake/hokkrvConfig.cmake.in ${PROJECT_BINARY_DIR}/hokkrvConfig.cmake
  INSTALL_DESTINATION ${KRV_CMAKE_PACKAGE_DIR})
# The SONAME changes with the major version, so only the same major version is compatible.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/hokkrvConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/hokkrvConfig.cmake ${PROJECT_BINARY_DIR}/hokkrvConfigVersion.cmake
  DESTINATION ${KRV_CMAKE_PACKAGE_DIR} COMPONENT development)

# The .pc file finds its prefix from its own location, so an installed tree can be moved.
file(RELATIVE_PATH KRV_PC_PREFIX_FROM_PCDIR /prefix/${KRV_PKGCONFIG_DIR} /prefix)
string(REGEX REPLACE "/$" "" KRV_PC_PREFIX_FROM_PCDIR "${KRV_PC_PREFIX_FROM_PCDIR}")
configure_file(cmake/hokkrv.pc.in ${PROJECT_BINARY_DIR}/hokkrv.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/hokkrv.pc DESTINATION ${KRV_PKGCONFIG_DIR} COMPONENT development)

set(CPACK_PACKAGE_NAME libhokkrv)
set(CPACK_PACKAGE_VENDOR "The libhokkrv developers")
set(CPACK_PACKAGE_CONTACT "The libhokkrv developers <libhokkrv@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Base support library for Linux service processes")
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime development)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libhokkrv${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libhokkrv-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
  "libhokkrv${PROJECT_VERSION_MAJOR} (= ${PROJECT_VERSION})")
include(CPack)
