# find_package(Wayloom COMPONENTS posix sim) after `cmake --install`.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

# Each component has an export set of its own, so that a host needs what it names and no more.
function(wayloom_export component target)
  install(TARGETS ${target} EXPORT Wayloom_${component} ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
  install(EXPORT Wayloom_${component} FILE Wayloom_${component}.cmake NAMESPACE wayloom::
          DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Wayloom)
endfunction()

wayloom_export(core wayloom)
foreach(component IN ITEMS posix sim linux gtk)
  if(TARGET wayloom_${component})
    wayloom_export(${component} wayloom_${component})
  endif()
endforeach()
if(TARGET wayloom_command)
  install(TARGETS wayloom_command RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()
install(DIRECTORY include/wayloom DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
set(wayloom_resources "${CMAKE_INSTALL_DATADIR}/wayloom/resources")
configure_package_config_file(cmake/WayloomConfig.cmake.in "${PROJECT_BINARY_DIR}/WayloomConfig.cmake"
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Wayloom PATH_VARS wayloom_resources)
write_basic_package_version_file("${PROJECT_BINARY_DIR}/WayloomConfigVersion.cmake" COMPATIBILITY SameMinorVersion)
install(FILES "${PROJECT_BINARY_DIR}/WayloomConfig.cmake" "${PROJECT_BINARY_DIR}/WayloomConfigVersion.cmake"
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Wayloom)
