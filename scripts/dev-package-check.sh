#!/usr/bin/env bash
# Installs the runtime and -dev packages (scripts/package.sh) with apt into a minimal Debian 12
# root that has nothing else but a compiler, cmake and pkg-config, then builds there, against
# /usr alone: one file that includes every installed header, and tests/consumer with
# find_package and with pkg-config, and runs them. A header whose package is not among the
# -dev package's dependencies fails here.
# Needs root (debootstrap, chroot, mounts). Removes the root and every mount on every exit path.
#   scripts/dev-package-check.sh [PACKAGE_DIR]   default: build/packages
#   FRESH_ROOT_MIRROR   Debian mirror for debootstrap (default http://deb.debian.org/debian)
set -euo pipefail
repo="$(cd "$(dirname "$0")/.." && pwd)"
packages="$(realpath "${1:-$repo/build/packages}")"
mirror="${FRESH_ROOT_MIRROR:-http://deb.debian.org/debian}"
started=$SECONDS

[ "$(id -u)" -eq 0 ] || { echo "dev-package-check: needs root (debootstrap, chroot, mounts)" >&2; exit 1; }
mapfile -t debs < <(find "$packages" -maxdepth 1 -name 'libqel-onlineservices-framework*.deb' | sort)
[ ${#debs[@]} -eq 2 ] || { echo "dev-package-check: need the runtime and -dev packages in $packages" >&2; exit 1; }
if ! command -v debootstrap >/dev/null; then
  env DEBIAN_FRONTEND=noninteractive apt-get -o DPkg::Lock::Timeout=300 -y -qq update >/dev/null
  env DEBIAN_FRONTEND=noninteractive apt-get -o DPkg::Lock::Timeout=300 -y -qq \
    install --no-install-recommends debootstrap >/dev/null
fi

work="$(mktemp -d /var/tmp/qel-dev-root.XXXXXX)"
root="$work/root"
mounts=(proc dev dev/pts)
cleanup() {
  local rc=$?
  set +e
  local i
  for ((i = ${#mounts[@]} - 1; i >= 0; i--)); do
    mountpoint -q "$root/${mounts[i]}" && { umount "$root/${mounts[i]}" || umount -l "$root/${mounts[i]}"; }
  done
  if findmnt -rn -o TARGET | grep -q "^$root/"; then
    echo "dev-package-check: mounts left under $root, not removing it" >&2
    rc=1
  else
    rm -rf --one-file-system "$work"
  fi
  echo "dev-package-check: total $((SECONDS - started)) s, exit $rc"
  exit $rc
}
trap cleanup EXIT
trap 'exit 130' INT TERM

mkdir -p "$root"
debootstrap --variant=minbase bookworm "$root" "$mirror" >"$work/debootstrap.log" 2>&1 ||
  { tail -20 "$work/debootstrap.log" >&2; exit 1; }
cp /etc/resolv.conf "$root/etc/resolv.conf"
mount -t proc proc "$root/proc"
mount --bind /dev "$root/dev"
mount --bind /dev/pts "$root/dev/pts"
mkdir -p "$root/root/debs" "$root/root/consumer"
cp "${debs[@]}" "$root/root/debs/"
cp "$repo/tests/consumer/CMakeLists.txt" "$repo/tests/consumer/main.cpp" "$root/root/consumer/"

in_root() {
  chroot "$root" /usr/bin/env -i HOME=/root TERM=dumb LANG=C.UTF-8 DEBIAN_FRONTEND=noninteractive \
    PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin bash -euo pipefail -c "cd /root && $1"
}
in_root "apt-get -qq update && apt-get -y -qq install --no-install-recommends g++ cmake make pkg-config ./debs/*.deb \
  >/dev/null"
echo "dev-package-check: installed $(in_root "ls debs | tr '\n' ' '")with their dependencies"

# One translation unit with every installed header, each compiled against /usr only.
in_root '
  headers=$(cd /usr/include && find onlineservices qel-platform -name "*.h" | sort)
  for header in $headers; do echo "#include <$header>"; done >all-headers.cpp
  echo "int main() { return 0; }" >>all-headers.cpp
  modules=$(cd /usr/lib/*/pkgconfig && ls qel*.pc | sed "s/\.pc$//")
  g++ -std=c++17 -Wall -Werror all-headers.cpp $(pkg-config --cflags --libs $modules) -o all-headers
  ./all-headers
  echo "dev-package-check: $(echo "$headers" | wc -l) installed headers compile together"
  cmake -S consumer -B consumer-build -DCMAKE_BUILD_TYPE=Release >/dev/null
  cmake --build consumer-build >/dev/null
  echo "dev-package-check: find_package consumer: $(consumer-build/consumer | head -1)"
  g++ -std=c++17 consumer/main.cpp $(pkg-config --cflags --libs qel.onlineservices.framework) -o consumer-pc
  echo "dev-package-check: pkg-config consumer: $(./consumer-pc | head -1)"
'
