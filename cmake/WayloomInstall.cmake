# find_package(Wayloom COMPONENTS posix sim) after `cmake --install`.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(wayloom_targets wayloom)
if(NOT WAYLOOM_CORE_ONLY)
  list(APPEND wayloom_targets wayloom_posix wayloom_sim)
  if(TARGET wayloom_gtk)
    list(APPEND wayloom_targets wayloom_gtk)
  endif()
  if(WAYLOOM_HAS_BLUEZ)
    list(APPEND wayloom_targets wayloom_linux)
  endif()
  install(TARGETS wayloom_command RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()
install(TARGETS ${wayloom_targets} EXPORT WayloomTargets ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY include/wayloom DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT WayloomTargets NAMESPACE wayloom:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Wayloom)
set(wayloom_resources "${CMAKE_INSTALL_DATADIR}/wayloom/resources")
configure_package_config_file(cmake/WayloomConfig.cmake.in "${PROJECT_BINARY_DIR}/WayloomConfig.cmake"
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Wayloom PATH_VARS wayloom_resources)
write_basic_package_version_file("${PROJECT_BINARY_DIR}/WayloomConfigVersion.cmake" COMPATIBILITY SameMinorVersion)
install(FILES "${PROJECT_BINARY_DIR}/WayloomConfig.cmake" "${PROJECT_BINARY_DIR}/WayloomConfigVersion.cmake"
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Wayloom)
