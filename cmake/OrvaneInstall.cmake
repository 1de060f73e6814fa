# Installs the library as a package: public headers in include/orvane, a CMake config giving
# Orvane::orvane, and orvane.pc.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

get_property(public_headers GLOBAL PROPERTY ORVANE_PUBLIC_HEADERS)
install(TARGETS orvane EXPORT OrvaneTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/orvane)
install(FILES ${public_headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/orvane)

set(config_dir ${CMAKE_INSTALL_LIBDIR}/cmake/Orvane)
install(EXPORT OrvaneTargets NAMESPACE Orvane:: DESTINATION ${config_dir})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/OrvaneConfig.cmake.in
  ${PROJECT_BINARY_DIR}/OrvaneConfig.cmake INSTALL_DESTINATION ${config_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/OrvaneConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/OrvaneConfig.cmake ${PROJECT_BINARY_DIR}/OrvaneConfigVersion.cmake
  DESTINATION ${config_dir})

configure_file(${PROJECT_SOURCE_DIR}/cmake/orvane.pc.in ${PROJECT_BINARY_DIR}/orvane.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/orvane.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
