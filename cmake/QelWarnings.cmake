# Warnings for everything we compile; third-party headers come in as SYSTEM includes.
function(qel_set_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic)
endfunction()

# A platform stand-in: its own shared library with the name the target's library has.
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
endfunction()
