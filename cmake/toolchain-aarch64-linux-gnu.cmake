# Cross build for 64-bit ARM Linux (the head unit's processor).
#
#   cmake -S . -B build/arm64 -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-aarch64-linux-gnu.cmake
#   (or: cmake --preset arm64)
#
# Two set-ups are understood:
# - Debian's cross compiler (crossbuild-essential-arm64) with the multiarch ":arm64" dev packages
#   installed next to the host's; headers and libraries come from /usr and /usr/lib/aarch64-linux-gnu.
# - A Yocto/OE SDK whose environment script has been sourced: its compilers (CC, CXX) and its sysroot
#   (OECORE_TARGET_SYSROOT or SDKTARGETSYSROOT) win over Debian's.
# Programs built here run on the host through the user-mode emulator (qemu-aarch64-static, or the
# one named by QEL_AARCH64_EMULATOR); CTest and gtest_discover_tests use it on their own.

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)

set(_qel_sdk_sysroot "$ENV{OECORE_TARGET_SYSROOT}")
if(NOT _qel_sdk_sysroot)
  set(_qel_sdk_sysroot "$ENV{SDKTARGETSYSROOT}")
endif()

if(_qel_sdk_sysroot)
  # The SDK's CC/CXX carry the target's flags and --sysroot after the compiler's name; CMake wants
  # the program alone, the rest goes into the initial flags.
  foreach(_qel_lang C CXX)
    set(_qel_command "$ENV{${_qel_lang}}")
    if(_qel_command)
      separate_arguments(_qel_command UNIX_COMMAND "${_qel_command}")
      list(POP_FRONT _qel_command _qel_compiler)
      list(JOIN _qel_command " " _qel_flags)
      set(CMAKE_${_qel_lang}_COMPILER "${_qel_compiler}")
      set(CMAKE_${_qel_lang}_FLAGS_INIT "${_qel_flags}")
    endif()
  endforeach()
  set(CMAKE_SYSROOT "${_qel_sdk_sysroot}")
  set(CMAKE_FIND_ROOT_PATH "${_qel_sdk_sysroot}")
  # The SDK's environment script sets these already; a bare sysroot gets the same.
  if(NOT DEFINED ENV{PKG_CONFIG_SYSROOT_DIR})
    set(ENV{PKG_CONFIG_SYSROOT_DIR} "${_qel_sdk_sysroot}")
  endif()
  if(NOT DEFINED ENV{PKG_CONFIG_LIBDIR})
    set(ENV{PKG_CONFIG_LIBDIR} "${_qel_sdk_sysroot}/usr/lib/pkgconfig:${_qel_sdk_sysroot}/usr/share/pkgconfig")
  endif()
  set(_qel_emulator_args -L "${_qel_sdk_sysroot}")
else()
  set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
  set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
  # Debian multiarch: the target's libraries live in /usr/lib/aarch64-linux-gnu beside the host's.
  set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
  find_program(_qel_pkg_config NAMES aarch64-linux-gnu-pkg-config)
  if(_qel_pkg_config)
    set(PKG_CONFIG_EXECUTABLE "${_qel_pkg_config}" CACHE FILEPATH "pkg-config for the target")
  endif()
  # Header-only and architecture-independent packages (nlohmann-json, Boost's headers) stay in /usr.
  set(ENV{PKG_CONFIG_LIBDIR} "/usr/lib/aarch64-linux-gnu/pkgconfig:/usr/share/pkgconfig")
  set(_qel_emulator_args)
endif()

# Programs and build tools come from the host; libraries, headers and packages from the target.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
if(_qel_sdk_sysroot)
  set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
  set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
  set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
endif()

if(NOT CMAKE_CROSSCOMPILING_EMULATOR)
  if(DEFINED ENV{QEL_AARCH64_EMULATOR})
    set(QEL_AARCH64_EMULATOR "$ENV{QEL_AARCH64_EMULATOR}")
  else()
    find_program(QEL_AARCH64_EMULATOR NAMES qemu-aarch64-static qemu-aarch64)
  endif()
  if(QEL_AARCH64_EMULATOR)
    list(PREPEND _qel_emulator_args "${QEL_AARCH64_EMULATOR}")
    set(CMAKE_CROSSCOMPILING_EMULATOR "${_qel_emulator_args}" CACHE STRING
      "Runs the target's programs on the build host")
  endif()
endif()
