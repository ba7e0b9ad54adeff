#!/usr/bin/env bash
# Installs the Debian 12 packages the build, the tests and the tools need.
# Idempotent and quiet when everything is already there.
set -euo pipefail

packages=(
  cmake ninja-build g++ clang libclang-rt-14-dev pkg-config
  nlohmann-json3-dev libinih-dev libboost-dev libdlt-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  python3 dbus
  doxygen dpkg-dev file
  libsdbus-c++-dev dbus curl
  chromium chromium-driver python3-selenium
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

sudo=""
if [ "$(id -u)" -ne 0 ]; then sudo="sudo"; fi
echo "setup: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
