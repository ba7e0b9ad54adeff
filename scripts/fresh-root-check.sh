#!/usr/bin/env bash
# Runs the README's two commands, exactly as written, from a clean clone inside a minimal Debian 12
# root (debootstrap --variant=minbase bookworm, root user, nothing else installed), so that a missing
# install step in scripts/setup.sh fails here instead of on a newcomer's machine.
# Needs root (debootstrap, chroot, mounts). Removes the root and every mount on every exit path.
#   FRESH_ROOT_MIRROR   Debian mirror for debootstrap (default http://deb.debian.org/debian)
#   FRESH_ROOT_TARBALL  development only: start from this tarball of a minbase root instead of
#                       bootstrapping a new one
set -euo pipefail
repo="$(cd "$(dirname "$0")/.." && pwd)"
mirror="${FRESH_ROOT_MIRROR:-http://deb.debian.org/debian}"
started=$SECONDS

if [ "$(id -u)" -ne 0 ]; then
  echo "fresh-root-check: needs root (debootstrap, chroot, mounts)" >&2
  exit 1
fi
if ! command -v debootstrap >/dev/null; then
  echo "fresh-root-check: installing debootstrap"
  env DEBIAN_FRONTEND=noninteractive apt-get -o DPkg::Lock::Timeout=300 -y -qq update >/dev/null
  env DEBIAN_FRONTEND=noninteractive apt-get -o DPkg::Lock::Timeout=300 -y -qq \
    install --no-install-recommends debootstrap >/dev/null
fi

work="$(mktemp -d /var/tmp/qel-fresh-root.XXXXXX)"
root="$work/root"
mounts=(proc sys dev dev/pts dev/shm)

cleanup() {
  local rc=$?
  set +e
  # Processes a failed run left behind inside the root (a bus daemon, a simulator) hold its mounts.
  local pid
  for pid in $(ls /proc | grep -E '^[0-9]+$'); do
    [ "$(readlink "/proc/$pid/root" 2>/dev/null)" = "$root" ] && kill -9 "$pid" 2>/dev/null
  done
  local i
  for ((i = ${#mounts[@]} - 1; i >= 0; i--)); do
    mountpoint -q "$root/${mounts[i]}" && { umount "$root/${mounts[i]}" || umount -l "$root/${mounts[i]}"; }
  done
  if findmnt -rn -o TARGET | grep -q "^$root/"; then
    echo "fresh-root-check: mounts left under $root, not removing it" >&2
    rc=1
  else
    rm -rf --one-file-system "$work"
  fi
  echo "fresh-root-check: total $((SECONDS - started)) s, exit $rc"
  exit $rc
}
trap cleanup EXIT
trap 'exit 130' INT TERM

mkdir -p "$root"
if [ -n "${FRESH_ROOT_TARBALL:-}" ]; then
  tar -xzf "$FRESH_ROOT_TARBALL" -C "$root"
else
  echo "fresh-root-check: creating a minbase bookworm root"
  step=$SECONDS
  debootstrap --variant=minbase bookworm "$root" "$mirror" >"$work/debootstrap.log" 2>&1 ||
    { tail -20 "$work/debootstrap.log" >&2; exit 1; }
  echo "fresh-root-check: root created in $((SECONDS - step)) s"
fi
cp /etc/resolv.conf "$root/etc/resolv.conf"

mount -t proc proc "$root/proc"
mount -t sysfs sysfs "$root/sys"
mount --bind /dev "$root/dev"
mount --bind /dev/pts "$root/dev/pts"
mount -t tmpfs -o mode=1777 tmpfs "$root/dev/shm"

git clone -q --no-local "$repo" "$root/root/qel"

in_root() {
  chroot "$root" /usr/bin/env -i HOME=/root TERM=dumb LANG=C.UTF-8 \
    PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin \
    bash -c "cd /root/qel && $1"
}
for command in scripts/demo.sh scripts/test.sh; do
  echo "fresh-root-check: $command"
  step=$SECONDS
  in_root "$command"
  echo "fresh-root-check: $command passed in $((SECONDS - step)) s"
done
