# Warnings for everything we compile; third-party headers come in as SYSTEM includes.
function(qel_set_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic)
endfunction()

# A platform stand-in: its own shared library with the name the target's library has. It is
# installed with the headers of the folders its sources are in (see cmake/QelInstall.cmake).
function(qel_add_platform_library target output_name)
  add_library(${target} SHARED ${ARGN})
  set_target_properties(${target} PROPERTIES
    OUTPUT_NAME ${output_name}
    VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR})
  target_include_directories(${target} PUBLIC
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/src/platform>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/qel-platform>)
  qel_set_warnings(${target})
  set(header_dirs "")
  foreach(source IN LISTS ARGN)
    get_filename_component(dir ${source} DIRECTORY)
    list(APPEND header_dirs ${dir})
  endforeach()
  list(REMOVE_DUPLICATES header_dirs)
  qel_install_library(${target} HEADER_DIRS ${header_dirs})
endfunction()
