#!/usr/bin/env bash
# Installs the Debian 12 packages the build, the tests and the tools need, on anything from a
# minimal root (root user, no sudo) to a developer's machine (sudo). Idempotent and quiet when
# everything is already there.
set -euo pipefail

packages=(
  # build
  cmake ninja-build g++ clang libclang-rt-14-dev pkg-config
  # libraries; automotive-dlt.pc links -lz, which libdlt-dev does not pull in
  nlohmann-json3-dev libinih-dev libboost-dev libdlt-dev zlib1g-dev libsdbus-c++-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  # the demo, the tests against real daemons
  python3 dbus curl dlt-daemon dlt-tools
  # packages and API reference
  doxygen dpkg-dev file lintian
  # the simulators' consoles in a real browser
  chromium chromium-driver python3-selenium
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

sudo=()
if [ "$(id -u)" -ne 0 ]; then
  if ! command -v sudo >/dev/null; then
    echo "setup: missing packages (${missing[*]}); run as root or install sudo" >&2
    exit 1
  fi
  sudo=(sudo)
fi
# Others may be installing at the same time: wait for dpkg's lock instead of failing.
apt=("${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -o DPkg::Lock::Timeout=300 -y -qq)
echo "setup: missing ${missing[*]}; updating the package lists"
"${apt[@]}" update >/dev/null
total=$("${apt[@]}" install --no-install-recommends -s "${missing[@]}" | grep -c '^Inst ' || true)
echo "setup: installing ${total} packages (a few minutes on a fresh system)"
# dlt-daemon's package starts a system daemon where it can; the tests start their own.
"${apt[@]}" install --no-install-recommends "${missing[@]}" >/dev/null
echo "setup: done"
