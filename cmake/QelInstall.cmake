# What an application gets from an install: every library it links or loads (with headers, a
# pkg-config file each and one CMake package exporting them all as qel::<name>) and the programs
# of the host kit. Libraries and programs only register themselves here; the install rules, the
# .pc files, the CMake package and the Debian packages are written once the whole tree is known
# (a deferred call at the end of the top-level CMakeLists), so that a library added anywhere, at
# any point, is shipped without touching this file.
#
#   qel_install_library(<target> [HEADER_DIRS <dir>...] [CFLAGS <flags>] [DESCRIPTION <text>])
#       HEADER_DIRS are folders below src/platform whose *.h go to include/qel-platform/<dir>
#       (not their subfolders; name a subfolder itself when it holds public headers).
#       qel_add_platform_library calls it for every platform library.
#   qel_install_program(<target>)
#       A program of the tools package (simulators, demo).
#   qel_install_data(<files> DESTINATION <dir below share/qel-onlineservices-framework>)
#       Files a program needs at run time (scenarios, sample configuration).
include(CMakePackageConfigHelpers)

set(QEL_PACKAGE_NAME qel_onlineservices_framework)
set(QEL_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/${QEL_PACKAGE_NAME})
set(QEL_DATA_DIR ${CMAKE_INSTALL_DATADIR}/qel-onlineservices-framework)
set(QEL_EXPORT_MAP ${CMAKE_CURRENT_LIST_DIR}/qel-exports.map)

function(qel_install_library target)
  cmake_parse_arguments(arg "" "DESCRIPTION" "HEADER_DIRS;CFLAGS" ${ARGN})
  set_property(GLOBAL APPEND PROPERTY QEL_INSTALLED_LIBRARIES ${target})
  string(REGEX REPLACE "^qel_" "" export_name ${target})
  if(NOT TARGET qel::${export_name})
    # The same name in the tree as for a consumer of the install.
    add_library(qel::${export_name} ALIAS ${target})
  endif()
  set_target_properties(${target} PROPERTIES
    EXPORT_NAME ${export_name}
    # Siblings in the same folder are found by the loader and by the linker of a consumer that
    # links only the library it uses (pkg-config), wherever the prefix is.
    INSTALL_RPATH "$ORIGIN"
    QEL_HEADER_DIRS "${arg_HEADER_DIRS}"
    QEL_PC_CFLAGS "${arg_CFLAGS}"
    QEL_PC_DESCRIPTION "${arg_DESCRIPTION}")
  # Export our own namespaces only: Boost, nlohmann and sdbus code compiled into a library stays
  # inside it and cannot clash with an application's own copy.
  target_link_options(${target} PRIVATE "LINKER:--version-script=${QEL_EXPORT_MAP}")
  set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS ${QEL_EXPORT_MAP})
endfunction()

function(qel_install_program target)
  set_property(GLOBAL APPEND PROPERTY QEL_INSTALLED_PROGRAMS ${target})
  string(REGEX REPLACE "^qel-" "" export_name ${target})
  set_target_properties(${target} PROPERTIES
    EXPORT_NAME ${export_name}
    INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
endfunction()

function(qel_install_data)
  cmake_parse_arguments(arg "" "DESTINATION" "" ${ARGN})
  install(FILES ${arg_UNPARSED_ARGUMENTS} DESTINATION ${QEL_DATA_DIR}/${arg_DESTINATION} COMPONENT tools)
endfunction()

# Follows a link item to the installed libraries behind it: itself when it is one, the libraries
# of a static library that is linked into it (the framework's internal archive), nothing else.
function(_qel_installed_behind item out)
  set(result "")
  string(REGEX REPLACE "^\\$<LINK_LIBRARY:[^,]*,(.*)>$" "\\1" item "${item}")
  string(REGEX REPLACE "^\\$<LINK_ONLY:(.*)>$" "\\1" item "${item}")
  get_property(installed GLOBAL PROPERTY QEL_INSTALLED_LIBRARIES)
  if(item IN_LIST installed)
    set(result ${item})
  elseif(TARGET ${item})
    get_target_property(type ${item} TYPE)
    get_target_property(imported ${item} IMPORTED)
    if(type STREQUAL "STATIC_LIBRARY" AND NOT imported)
      get_target_property(deps ${item} INTERFACE_LINK_LIBRARIES)
      foreach(dep IN LISTS deps)
        _qel_installed_behind("${dep}" sub)
        list(APPEND result ${sub})
      endforeach()
    endif()
  endif()
  set(${out} ${result} PARENT_SCOPE)
endfunction()

# What a foreign link item means for a .pc file: "-pthread", "-l<name>" for each library of a
# pkg-config import, nothing for header-only packages.
function(_qel_foreign_libs item out)
  set(result "")
  if(item STREQUAL "Threads::Threads")
    set(result "-pthread")
  elseif(item MATCHES "^PkgConfig::")
    get_target_property(files ${item} INTERFACE_LINK_LIBRARIES)
    foreach(file IN LISTS files)
      get_filename_component(name ${file} NAME_WE)
      string(REGEX REPLACE "^lib" "" name ${name})
      list(APPEND result "-l${name}")
    endforeach()
  endif()
  set(${out} ${result} PARENT_SCOPE)
endfunction()

# A consumer's CMake needs these packages for the public link items of our targets.
function(_qel_find_dependency item out)
  set(result "")
  if(item STREQUAL "Threads::Threads")
    set(result "Threads")
  elseif(item MATCHES "^nlohmann_json::")
    set(result "nlohmann_json")
  elseif(item MATCHES "^Boost::")
    set(result "Boost")
  elseif(item MATCHES "^SDBusCpp::")
    set(result "sdbus-c++")
  elseif(TARGET ${item})
    message(FATAL_ERROR "${item} is a public dependency of an installed library; link it PRIVATE "
                        "or teach cmake/QelInstall.cmake which package provides it")
  endif()
  set(${out} ${result} PARENT_SCOPE)
endfunction()

function(_qel_write_pc target)
  get_target_property(name ${target} OUTPUT_NAME)
  get_target_property(description ${target} QEL_PC_DESCRIPTION)
  get_target_property(cflags ${target} QEL_PC_CFLAGS)
  if(NOT description)
    set(description "qel platform library ${name}")
  endif()
  if(NOT cflags)
    set(cflags "-I\${includedir}/qel-platform")
  endif()
  get_target_property(public ${target} INTERFACE_LINK_LIBRARIES)
  get_target_property(all ${target} LINK_LIBRARIES)
  set(requires "")
  set(requires_private "")
  set(libs "")
  set(libs_private "")
  foreach(item IN LISTS all)
    _qel_installed_behind("${item}" behind)
    _qel_foreign_libs("${item}" foreign)
    if(item IN_LIST public)
      list(APPEND requires ${behind})
      list(APPEND libs ${foreign})
    else()
      list(APPEND requires_private ${behind})
      list(APPEND libs_private ${foreign})
    endif()
  endforeach()
  list(REMOVE_DUPLICATES requires)
  list(REMOVE_DUPLICATES requires_private)
  list(REMOVE_ITEM requires_private ${requires})
  foreach(kind requires requires_private)
    set(names "")
    foreach(dep IN LISTS ${kind})
      get_target_property(dep_name ${dep} OUTPUT_NAME)
      list(APPEND names "${dep_name} = ${PROJECT_VERSION}")
    endforeach()
    list(JOIN names ", " ${kind})
  endforeach()
  list(REMOVE_DUPLICATES libs)
  list(REMOVE_DUPLICATES libs_private)
  list(JOIN libs " " libs)
  list(JOIN libs_private " " libs_private)
  # The .pc files find the prefix from their own place, so the install tree can be moved.
  file(RELATIVE_PATH pc_to_prefix /root/${CMAKE_INSTALL_LIBDIR}/pkgconfig /root)
  configure_file(${QEL_CMAKE_TEMPLATES}/qel-library.pc.in ${PROJECT_BINARY_DIR}/pkgconfig/${name}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/pkgconfig/${name}.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)
endfunction()

function(_qel_finalize_install)
  get_property(libraries GLOBAL PROPERTY QEL_INSTALLED_LIBRARIES)
  get_property(programs GLOBAL PROPERTY QEL_INSTALLED_PROGRAMS)

  install(TARGETS ${libraries} EXPORT ${QEL_PACKAGE_NAME}Targets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev)
  install(EXPORT ${QEL_PACKAGE_NAME}Targets NAMESPACE qel::
    DESTINATION ${QEL_CMAKE_DIR} COMPONENT dev)
  if(programs)
    # Separate, so that the package works with or without the tools installed.
    install(TARGETS ${programs} EXPORT ${QEL_PACKAGE_NAME}ToolsTargets
      RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
    install(EXPORT ${QEL_PACKAGE_NAME}ToolsTargets NAMESPACE qel::
      DESTINATION ${QEL_CMAKE_DIR} COMPONENT tools)
  endif()

  install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/onlineservices
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT dev)
  set(dependencies "")
  foreach(library IN LISTS libraries)
    get_target_property(dirs ${library} QEL_HEADER_DIRS)
    foreach(dir IN LISTS dirs)
      # Only the folder itself: subfolders (rsi/host) hold a library's internals.
      file(GLOB headers ${PROJECT_SOURCE_DIR}/src/platform/${dir}/*.h)
      install(FILES ${headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/qel-platform/${dir} COMPONENT dev)
    endforeach()
    get_target_property(public ${library} INTERFACE_LINK_LIBRARIES)
    foreach(item IN LISTS public)
      if(NOT item IN_LIST libraries)
        _qel_find_dependency("${item}" package)
        list(APPEND dependencies ${package})
      endif()
    endforeach()
    _qel_write_pc(${library})
  endforeach()

  list(REMOVE_DUPLICATES dependencies)
  set(QEL_FIND_DEPENDENCIES "")
  foreach(package IN LISTS dependencies)
    string(APPEND QEL_FIND_DEPENDENCIES "find_dependency(${package})\n")
  endforeach()
  configure_package_config_file(${QEL_CMAKE_TEMPLATES}/${QEL_PACKAGE_NAME}Config.cmake.in
    ${PROJECT_BINARY_DIR}/${QEL_PACKAGE_NAME}Config.cmake
    INSTALL_DESTINATION ${QEL_CMAKE_DIR})
  write_basic_package_version_file(${PROJECT_BINARY_DIR}/${QEL_PACKAGE_NAME}ConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
  install(FILES
    ${PROJECT_BINARY_DIR}/${QEL_PACKAGE_NAME}Config.cmake
    ${PROJECT_BINARY_DIR}/${QEL_PACKAGE_NAME}ConfigVersion.cmake
    DESTINATION ${QEL_CMAKE_DIR} COMPONENT dev)

  # Sanitized builds are never shipped, and UBSan's function check adds type information of
  # function types (whatever their parameters) to what a library exports.
  if(QEL_BUILD_TESTS AND NOT QEL_SANITIZE)
    set(files "")
    foreach(library IN LISTS libraries)
      list(APPEND files $<TARGET_FILE:${library}>)
    endforeach()
    add_test(NAME install.exported_symbols
      COMMAND ${PROJECT_SOURCE_DIR}/scripts/check-exports.sh ${files})
  endif()

  include(${QEL_CMAKE_TEMPLATES}/QelPackaging.cmake)
endfunction()

set(QEL_CMAKE_TEMPLATES ${CMAKE_CURRENT_LIST_DIR})
cmake_language(DEFER DIRECTORY ${PROJECT_SOURCE_DIR} CALL _qel_finalize_install)
