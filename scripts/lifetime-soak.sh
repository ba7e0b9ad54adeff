#!/usr/bin/env bash
# The lifetime soak for one preset: clients released at random moments (see
# benchmarks/soak/LifetimeSoak.cpp). Fails when any life crashed, hung or left something behind.
#   scripts/lifetime-soak.sh [preset] [lives] [first seed]
set -euo pipefail
preset="${1:-default}"
lives="${2:-300}"
seed="${3:-1}"
cd "$(dirname "$0")/.."

cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset" --target qel_lifetime_soak

# A sanitizer report ends the life's child process, so it is counted rather than scrolled past.
export ASAN_OPTIONS="${ASAN_OPTIONS:-halt_on_error=1}"
export TSAN_OPTIONS="${TSAN_OPTIONS:-halt_on_error=1 suppressions=$PWD/tests/tsan.supp}"
run=()
if [ "$preset" = "tsan" ] && [ "$(cat /proc/sys/vm/mmap_rnd_bits 2>/dev/null || echo 0)" -gt 28 ]; then
  run=(setarch "$(uname -m)" -R)
fi
"${run[@]}" "build/$preset/benchmarks/soak/qel_lifetime_soak" --lives "$lives" --seed "$seed"
