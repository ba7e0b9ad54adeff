#!/usr/bin/env bash
# Builds an application against an installed framework, once through its CMake package and once
# through pkg-config, and runs both with only the install's library folder on the library path.
#   scripts/consumer-check.sh            install build/default into a new temporary prefix first
#   scripts/consumer-check.sh PREFIX     use an existing install (for example /usr from the .debs)
#   scripts/consumer-check.sh arm64 [PREFIX]   the same for the arm64 cross build (build/arm64):
#                                        built with cmake/toolchain-aarch64-linux-gnu.cmake and the
#                                        cross compiler, run under qemu-aarch64-static
# The application is tests/consumer; CONSUMER_DIR, CONSUMER_TARGET and CONSUMER_ARGS name another
# one (a folder with a CMakeLists.txt using find_package and its .cpp files), CONSUMER_EXPECT a
# line its output must hold, as an extended regular expression (default: "qel online services
# framework <version>"). The application runs with its standard input empty.
set -euo pipefail
cd "$(dirname "$0")/.."
consumer_dir="$(realpath "${CONSUMER_DIR:-tests/consumer}")"
consumer_target="${CONSUMER_TARGET:-consumer}"
read -r -a consumer_args <<<"${CONSUMER_ARGS:-}"

build=build/default cxx=g++ cmake_cross=() emulator=() target_pkgconfig=""
if [ "${1:-}" = "arm64" ]; then
  shift
  build=build/arm64 cxx=aarch64-linux-gnu-g++ target_pkgconfig=/usr/lib/aarch64-linux-gnu/pkgconfig
  cmake_cross=(-DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/toolchain-aarch64-linux-gnu.cmake")
  emulator=(qemu-aarch64-static)
fi
# Runs a program of the build's architecture with LD_LIBRARY_PATH=$1 and nothing else on the path.
run_with_libdir() {
  local libdir="$1"
  shift
  if [ ${#emulator[@]} -gt 0 ]; then
    env -u LD_LIBRARY_PATH "${emulator[@]}" -E LD_LIBRARY_PATH="$libdir" "$@"
  else
    env -u LD_LIBRARY_PATH LD_LIBRARY_PATH="$libdir" "$@"
  fi
}
# The libraries a program loads, as ldd lists them (ldd itself only knows the host's programs).
loaded_libraries() {
  if [ ${#emulator[@]} -gt 0 ]; then
    "${emulator[@]}" -E LD_TRACE_LOADED_OBJECTS=1 -E LD_LIBRARY_PATH="$1" "$2"
  else
    env -u LD_LIBRARY_PATH LD_LIBRARY_PATH="$1" ldd "$2"
  fi
}

work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
if [ $# -ge 1 ]; then
  prefix="$(realpath "$1")"
else
  prefix="$work/prefix"
  cmake --install "$build" --prefix "$prefix" >/dev/null
fi

library="$(find "$prefix" -name 'libqel.onlineservices.framework.so.*' -print -quit 2>/dev/null || true)"
[ -n "$library" ] || { echo "consumer-check: no framework library below $prefix" >&2; exit 1; }
libdir="$(dirname "$library")"
echo "consumer-check: prefix $prefix, libraries in $libdir"

# Without a run path in the program, so that the library path is what finds the libraries.
cmake -S "$consumer_dir" -B "$work/cmake" -G Ninja -DCMAKE_BUILD_TYPE=Release "${cmake_cross[@]}" \
  -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF -DCMAKE_SKIP_RPATH=ON >/dev/null
cmake --build "$work/cmake" >/dev/null
echo "consumer-check: built with find_package"

export PKG_CONFIG_PATH="$libdir/pkgconfig"
# A cross build's pkg-config sees the target's libraries only, never the host's.
[ -z "$target_pkgconfig" ] || export PKG_CONFIG_LIBDIR="$target_pkgconfig:/usr/share/pkgconfig"
pkg-config --validate qel.onlineservices.framework
# shellcheck disable=SC2046
mapfile -t sources < <(find "$consumer_dir" -name '*.cpp' | sort)
"$cxx" -std=c++17 -O1 -o "$work/consumer-pkgconfig" "${sources[@]}" \
  $(pkg-config --cflags --libs qel.onlineservices.framework)
echo "consumer-check: built with pkg-config: $(pkg-config --libs qel.onlineservices.framework)"

expected="${CONSUMER_EXPECT:-qel online services framework $(pkg-config --modversion qel.onlineservices.framework)}"
for program in "$work/cmake/$consumer_target" "$work/consumer-pkgconfig"; do
  # Every library of ours must come from the prefix, none from a build tree.
  stray="$(loaded_libraries "$libdir" "$program" | grep 'libqel' | grep -v "=> $libdir/" || true)"
  if [ -n "$stray" ]; then
    echo "consumer-check: $program loads libraries from outside $libdir:" >&2
    echo "$stray" >&2
    exit 1
  fi
  output="$(run_with_libdir "$libdir" "$program" "${consumer_args[@]}" </dev/null)"
  if ! grep -qxE "$expected" <<<"$output"; then
    echo "consumer-check: $program did not print \"$expected\":" >&2
    echo "$output" >&2
    exit 1
  fi
  echo "consumer-check: ran $(basename "$program") ($(file -b "$program" | cut -d, -f2 | sed 's/^ //')): $(head -n 1 <<<"$output")"
done
echo "consumer-check: passed"
