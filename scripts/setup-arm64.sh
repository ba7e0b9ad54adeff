#!/usr/bin/env bash
# Installs what the arm64 cross build and its emulated test run need on top of scripts/setup.sh:
# the arm64 architecture in dpkg, Debian's cross compiler, the user-mode emulator and the arm64
# builds of the libraries the framework and its tests link. Idempotent and quiet when done.
set -euo pipefail

packages=(
  crossbuild-essential-arm64 qemu-user-static
  libboost-dev:arm64 libsdbus-c++-dev:arm64 libdlt-dev:arm64 libinih-dev:arm64
  libgtest-dev:arm64 libgmock-dev:arm64 zlib1g-dev:arm64
)

sudo=""
if [ "$(id -u)" -ne 0 ]; then sudo="sudo"; fi
export DEBIAN_FRONTEND=noninteractive

if ! dpkg --print-foreign-architectures | grep -qx arm64; then
  echo "setup-arm64: adding the arm64 architecture"
  $sudo dpkg --add-architecture arm64
fi

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "setup-arm64: installing ${missing[*]}"
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends -o DPkg::Lock::Timeout=300 "${missing[@]}" >/dev/null
