#!/usr/bin/env bash
# Builds the Debian packages (runtime, -dev, tools) from the default build tree, lists them and
# checks what they hold.
#   scripts/package.sh [OUTPUT_DIR]        default: build/packages
#   scripts/package.sh arm64 [OUTPUT_DIR]  from the arm64 cross build; default: build/packages-arm64
# Install them on a Debian 12 machine with: apt install ./OUTPUT_DIR/*.deb
set -euo pipefail
cd "$(dirname "$0")/.."
preset=default
if [ "${1:-}" = "arm64" ]; then
  preset=arm64
  shift
fi
default_out=build/packages
[ "$preset" = default ] || default_out="build/packages-$preset"
out="$(realpath -m "${1:-$default_out}")"

bash scripts/setup.sh
if [ "$preset" = arm64 ]; then bash scripts/setup-arm64.sh; fi
[ -f "build/$preset/CPackConfig.cmake" ] || cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset" >/dev/null
rm -rf "$out"
mkdir -p "$out"
cpack --config "build/$preset/CPackConfig.cmake" -B "$out" >/dev/null
rm -rf "$out/_CPack_Packages"

failures=0
fail() { echo "FAIL $*"; failures=$((failures + 1)); }

declare -A deb
for kind in runtime dev tools; do
  case $kind in
    runtime) pattern='libqel-onlineservices-framework[0-9]*_*.deb' ;;
    dev) pattern='libqel-onlineservices-framework-dev_*.deb' ;;
    tools) pattern='qel-onlineservices-framework-tools_*.deb' ;;
  esac
  deb[$kind]="$(find "$out" -maxdepth 1 -name "$pattern" -print -quit)"
  [ -n "${deb[$kind]}" ] || fail "no $kind package in $out"
done
[ "$failures" -eq 0 ] || exit 1

for kind in runtime dev tools; do
  file="${deb[$kind]}"
  echo "== $(basename "$file")"
  dpkg-deb -f "$file" Package Version Depends
  dpkg-deb -c "$file" | awk '{print "   " $6 ($7 ? " " $7 " " $8 : "")}'
  # Maintainer scripts: none, except the runtime package's postinst and postrm running ldconfig.
  control="$(mktemp -d)"
  dpkg-deb -e "$file" "$control"
  for script in "$control"/*; do
    case "$(basename "$script")" in
      control | md5sums | shlibs | triggers) ;;
      postinst | postrm)
        extra="$(grep -vE '^(#!/bin/sh|set -e|if \[ "\$1" = "(configure|remove)" \]; then|[[:space:]]*ldconfig|fi|)$' "$script" || true)"
        [ -z "$extra" ] || fail "$kind package's $(basename "$script") does more than ldconfig: $extra" ;;
      *) fail "$kind package has the maintainer script $(basename "$script")" ;;
    esac
  done
  rm -rf "$control"
done

contents() { dpkg-deb -c "${deb[$1]}" | awk '{print $6}'; }
# Test helpers, static archives and benchmarks never ship.
for kind in runtime dev tools; do
  stray="$(contents "$kind" | grep -E '(^|/)[^/]*(test|gtest|gmock|benchmark|fuzz)[^/]*$|\.a$' || true)"
  [ -z "$stray" ] || fail "$kind package ships $stray"
done
contents runtime | grep -E '/libqel\.onlineservices\.framework\.so\.[0-9]+$' >/dev/null || fail "runtime package lacks the framework's SONAME link"
! contents runtime | grep -E '\.so$|/include/|\.pc$|/bin/' >/dev/null || fail "runtime package holds development files or programs"
contents dev | grep '/include/onlineservices/framework/Version.h$' >/dev/null || fail "dev package lacks the public headers"
contents dev | grep '/cmake/qel_onlineservices_framework/qel_onlineservices_frameworkConfigVersion.cmake$' >/dev/null || fail "dev package lacks the CMake package"
for library in $(contents runtime | grep -oE 'libqel[^/]*\.so\.[0-9]+$'); do
  name="${library#lib}"
  name="${name%.so.*}"
  contents dev | grep "/pkgconfig/$name.pc$" >/dev/null || fail "dev package lacks $name.pc"
  contents dev | grep "/lib$name.so$" >/dev/null || fail "dev package lacks the link lib$name.so"
done
contents tools | grep '/bin/qel-backend-sim$' >/dev/null || fail "tools package lacks qel-backend-sim"
contents tools | grep '/bin/qel-networking-sim$' >/dev/null || fail "tools package lacks qel-networking-sim"
contents tools | grep '/bin/qel-demo-app$' >/dev/null || fail "tools package lacks qel-demo-app"

# The shipped libraries, as packaged (stripped), export nothing but our own code.
unpacked="$(mktemp -d)"
trap 'rm -rf "$unpacked"' EXIT
dpkg-deb -x "${deb[runtime]}" "$unpacked"
mapfile -t libraries < <(find "$unpacked" -type f -name 'lib*.so.*')
scripts/check-exports.sh "${libraries[@]}" | sed "s|$unpacked||" || fail "a packaged library exports foreign symbols"
# The utilities offered to applications are exported with the client's interface.
framework_library="$(find "$unpacked" -type f -name 'libqel.onlineservices.framework.so.*' -print -quit)"
for class in CommonApiConnector Conversion; do
  nm -DC --defined-only "$framework_library" | grep "utils::$class::" >/dev/null || fail "the framework library does not export utils::$class"
done

# Every package and every object in it is built for the preset's architecture.
architecture="$(dpkg --print-architecture)"
[ "$preset" != arm64 ] || architecture=arm64
case $architecture in
  amd64) machine=x86-64 ;;
  arm64) machine='ARM aarch64' ;;
  *) machine="$(file -bL /bin/sh | cut -d, -f2 | sed 's/^ //')" ;;
esac
for kind in runtime dev tools; do
  [ "$(dpkg-deb -f "${deb[$kind]}" Architecture)" = "$architecture" ] ||
    fail "$kind package is for $(dpkg-deb -f "${deb[$kind]}" Architecture), not $architecture"
  dpkg-deb -x "${deb[$kind]}" "$unpacked/$kind"
  objects=0
  while IFS= read -r object; do
    objects=$((objects + 1))
    file -b "$object" | grep "$machine" >/dev/null || fail "$kind package's ${object#"$unpacked/$kind"} is $(file -b "$object")"
  done < <(find "$unpacked/$kind" -type f -exec sh -c 'file -b "$1" | grep "^ELF" >/dev/null' _ {} \; -print)
  echo "$kind: Architecture $architecture, $objects ELF objects for $machine"
done

[ "$failures" -eq 0 ] || { echo "package: $failures check(s) failed"; exit 1; }
echo "package: $(find "$out" -maxdepth 1 -name '*.deb' | wc -l) packages in $out, all checks passed"
