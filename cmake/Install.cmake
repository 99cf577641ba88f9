# What `cmake --install` puts where. Everything is found relative to its own place afterwards, so a prefix
# can be moved or unpacked anywhere. The components: `runtime` is what programs need to run, `development`
# what it takes to build them, `tools` the programs that come with the library, `documentation` what to read.
include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/utility)

# The name of the document library is fixed: it carries no version, so it has no link to go with it.
install(TARGETS utility litexml EXPORT utilityTargets
  LIBRARY
    DESTINATION ${CMAKE_INSTALL_LIBDIR}
    COMPONENT runtime
    NAMELINK_COMPONENT development)
# The document library lies beside this one.
set_target_properties(utility PROPERTIES INSTALL_RPATH "$ORIGIN")

install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/utility
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
  COMPONENT development
  FILES_MATCHING PATTERN "*.h")

install(EXPORT utilityTargets
  NAMESPACE utility::
  DESTINATION ${package_dir}
  COMPONENT development)
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/utilityConfig.cmake.in
  ${PROJECT_BINARY_DIR}/utilityConfig.cmake
  INSTALL_DESTINATION ${package_dir}
  NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/utilityConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/utilityConfig.cmake ${PROJECT_BINARY_DIR}/utilityConfigVersion.cmake
  DESTINATION ${package_dir}
  COMPONENT development)

file(RELATIVE_PATH pkgconfig_to_prefix
  /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
string(REGEX REPLACE "/$" "" pkgconfig_to_prefix ${pkgconfig_to_prefix})
configure_file(${CMAKE_CURRENT_LIST_DIR}/utility.pc.in ${PROJECT_BINARY_DIR}/utility.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/utility.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
  COMPONENT development)

if(UTILITY_TOOLS)
  set_target_properties(utility-host-report PROPERTIES
    INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
  install(TARGETS utility-host-report RUNTIME COMPONENT tools)
  install(FILES ${PROJECT_SOURCE_DIR}/tools/utility-host-report.bash
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
    RENAME utility-host-report
    COMPONENT tools)
endif()
