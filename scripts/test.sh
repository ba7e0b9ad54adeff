#!/usr/bin/env bash
# Set-up, configure, build and run the whole suite for one preset (default: "default").
#   scripts/test.sh            RelWithDebInfo with g++
#   scripts/test.sh asan       ASan + UBSan with clang
#   scripts/test.sh tsan       TSan with clang
#   scripts/test.sh arm64      cross-built for aarch64, the suite run under qemu
set -euo pipefail
preset="${1:-default}"
cd "$(dirname "$0")/.."

bash scripts/setup.sh
if [ "$preset" = "arm64" ]; then bash scripts/setup-arm64.sh; fi
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset"

# TSan of clang 14 cannot map its shadow memory with the kernel's high-entropy ASLR.
run=()
if [ "$preset" = "tsan" ] && [ "$(cat /proc/sys/vm/mmap_rnd_bits 2>/dev/null || echo 0)" -gt 28 ]; then
  run=(setarch "$(uname -m)" -R)
fi
"${run[@]}" ctest --preset "$preset"
