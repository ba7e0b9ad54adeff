# Debian packages of the install tree, one per install component:
#   runtime  libqel-onlineservices-framework1     the shared libraries (SONAME files and links)
#   dev      libqel-onlineservices-framework-dev  headers, CMake package, .pc files, unversioned links
#   tools    qel-onlineservices-framework-tools   the simulators and the demo, with their data
# Built by scripts/package.sh from an existing build tree.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME qel-onlineservices-framework)
set(CPACK_PACKAGE_VENDOR "qel")
set(CPACK_PACKAGE_CONTACT "qel online services team <onlineservices@qel.invalid>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
# No package-wide summary: each description's first line is its package's own summary.
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
# CPack takes the build host's architecture by default; a cross build's packages are the target's.
if(CMAKE_CROSSCOMPILING AND CMAKE_SYSTEM_PROCESSOR MATCHES "^(aarch64|arm64)$")
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE arm64)
endif()
set(CPACK_COMPONENTS_ALL runtime dev tools)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# dpkg-shlibdeps finds our own libraries of the runtime package here when it looks at the tools.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "")
foreach(library IN LISTS libraries)
  get_target_property(dir ${library} BINARY_DIR)
  list(APPEND CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${dir})
endforeach()
list(REMOVE_DUPLICATES CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libqel-onlineservices-framework${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
# A shlibs file for packages built on ours; CPack adds postinst/postrm that only run ldconfig.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
# dpkg runs ldconfig through this trigger for the shared libraries.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_LIST_DIR}/debian/triggers)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "online services framework for head-unit applications: shared libraries
 The framework library and the platform libraries it loads at run time.")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME libqel-onlineservices-framework-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
# The installed headers of the D-Bus binding and the host RSI client include these libraries' own.
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "libsdbus-c++-dev, libboost-dev")
set(CPACK_DEBIAN_DEV_PACKAGE_SUGGESTS "cmake, pkg-config")
set(CPACK_DEBIAN_DEV_DESCRIPTION "online services framework for head-unit applications: development files
 Public headers, the CMake package qel_onlineservices_framework and pkg-config files.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME qel-onlineservices-framework-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION devel)
# The networking simulator and the demo talk over a D-Bus session bus.
set(CPACK_DEBIAN_TOOLS_PACKAGE_RECOMMENDS "dbus")
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "online services framework for head-unit applications: host kit
 Simulators of the backend and the platform services, and the demo application.")

# Every package carries its copyright and changelog; the developers' ones the protocol documents.
string(TIMESTAMP changelog_date "%a, %d %b %Y %H:%M:%S +0000" UTC)
file(WRITE ${PROJECT_BINARY_DIR}/debian/changelog
  "qel-onlineservices-framework (${PROJECT_VERSION}) unstable; urgency=medium\n\n"
  "  * Release ${PROJECT_VERSION}.\n\n"
  " -- ${CPACK_PACKAGE_CONTACT}  ${changelog_date}\n")
execute_process(COMMAND gzip -9nf ${PROJECT_BINARY_DIR}/debian/changelog)
foreach(component runtime dev tools)
  string(TOUPPER ${component} upper)
  set(doc_dir ${CMAKE_INSTALL_DATADIR}/doc/${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
  install(FILES ${CMAKE_CURRENT_LIST_DIR}/debian/copyright ${PROJECT_BINARY_DIR}/debian/changelog.gz
    DESTINATION ${doc_dir} COMPONENT ${component})
  if(NOT component STREQUAL "runtime")
    install(FILES ${PROJECT_SOURCE_DIR}/docs/rsi-wire-protocol.md ${PROJECT_SOURCE_DIR}/docs/networking-dbus.md
      DESTINATION ${doc_dir} COMPONENT ${component})
  endif()
endforeach()

include(CPack)
cpack_add_component(runtime DISPLAY_NAME "Shared libraries")
cpack_add_component(dev DISPLAY_NAME "Development files" DEPENDS runtime)
cpack_add_component(tools DISPLAY_NAME "Host kit" DEPENDS runtime)
