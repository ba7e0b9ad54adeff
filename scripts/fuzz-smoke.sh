#!/usr/bin/env bash
# Builds the libFuzzer targets (preset "fuzz", clang) and runs each one briefly from its seed
# corpus in fuzz/corpus/<target>/. New inputs and any crash file go to a scratch directory, never
# into the repository.
#   scripts/fuzz-smoke.sh            20 s per target
#   scripts/fuzz-smoke.sh 300        300 s per target
set -euo pipefail
seconds="${1:-20}"
cd "$(dirname "$0")/.."

cmake --preset fuzz >/dev/null
cmake --build --preset fuzz

scratch="$(mktemp -d)"
trap 'rm -rf "$scratch"' EXIT
status=0
for seeds in fuzz/corpus/*/; do
  target="$(basename "$seeds")"
  binary="build/fuzz/fuzz/$target"
  if [ ! -x "$binary" ]; then
    echo "fuzz-smoke: no binary for corpus $target" >&2
    status=1
    continue
  fi
  mkdir -p "$scratch/$target"
  echo "fuzz-smoke: $target for ${seconds}s"
  if ! "$binary" -max_total_time="$seconds" -timeout=20 -rss_limit_mb=2048 -print_final_stats=1 \
      -artifact_prefix="$scratch/$target/" "$scratch/$target" "$seeds" 2>"$scratch/$target.log"; then
    tail -n 60 "$scratch/$target.log" >&2
    status=1
  fi
  grep -E '^stat::(number_of_executed_units|average_exec_per_sec)' "$scratch/$target.log" || true
done
exit "$status"
