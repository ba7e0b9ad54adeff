# Installs the framework as a CMake package (qel::onlineservices_framework) and a pkg-config
# file. The platform stand-ins it links are installed beside it, with their headers under
# include/qel-platform, because the public headers use their types (Logger, Value).
include(CMakePackageConfigHelpers)

set(QEL_PLATFORM_INSTALL_TARGETS qel_common qel_dataformats qel_commonapi)
set_target_properties(qel_onlineservices_framework PROPERTIES EXPORT_NAME onlineservices_framework)
set_target_properties(qel_common PROPERTIES EXPORT_NAME common)
set_target_properties(qel_dataformats PROPERTIES EXPORT_NAME dataformats)

install(TARGETS qel_onlineservices_framework ${QEL_PLATFORM_INSTALL_TARGETS}
  EXPORT qel_onlineservices_frameworkTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(TARGETS qel_onlineservices_common LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/onlineservices
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
foreach(folder common dataformats)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/src/platform/${folder}
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/qel-platform
    FILES_MATCHING PATTERN "*.h")
endforeach()

set(QEL_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/qel_onlineservices_framework)
install(EXPORT qel_onlineservices_frameworkTargets
  NAMESPACE qel::
  DESTINATION ${QEL_CMAKE_DIR})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/qel_onlineservices_frameworkConfig.cmake.in
  ${PROJECT_BINARY_DIR}/qel_onlineservices_frameworkConfig.cmake
  INSTALL_DESTINATION ${QEL_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/qel_onlineservices_frameworkConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/qel_onlineservices_frameworkConfig.cmake
  ${PROJECT_BINARY_DIR}/qel_onlineservices_frameworkConfigVersion.cmake
  DESTINATION ${QEL_CMAKE_DIR})

configure_file(${PROJECT_SOURCE_DIR}/cmake/qel.onlineservices.framework.pc.in
  ${PROJECT_BINARY_DIR}/qel.onlineservices.framework.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/qel.onlineservices.framework.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
