include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

install(TARGETS numbra_mac_x86 EXPORT numbraTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES ${PROJECT_SOURCE_DIR}/include/numbra.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

set(config_dir ${CMAKE_INSTALL_LIBDIR}/cmake/numbra)
install(EXPORT numbraTargets NAMESPACE numbra:: DESTINATION ${config_dir})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/numbraConfig.cmake.in
  ${PROJECT_BINARY_DIR}/numbraConfig.cmake INSTALL_DESTINATION ${config_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/numbraConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/numbraConfig.cmake ${PROJECT_BINARY_DIR}/numbraConfigVersion.cmake
  DESTINATION ${config_dir})

# The pkg-config file finds its prefix from its own place, so the installed
# tree can be moved.
file(RELATIVE_PATH pc_to_prefix /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(${PROJECT_SOURCE_DIR}/cmake/numbra.pc.in ${PROJECT_BINARY_DIR}/numbra.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/numbra.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
