#!/usr/bin/env bash
# Fails when a shipped library exports code of a package it only uses inside (Boost, nlohmann-json,
# sdbus-c++), or exports nothing of its own (the export list would then be wrong).
#   scripts/check-exports.sh LIBRARY...
set -euo pipefail
[ $# -gt 0 ] || { echo "usage: $0 LIBRARY..." >&2; exit 2; }

status=0
for library in "$@"; do
  symbols="$(nm -D --defined-only -C "$library")"
  foreign="$(grep -E 'boost::|nlohmann::|sdbus::' <<<"$symbols" || true)"
  if [ -n "$foreign" ]; then
    echo "FAIL $library exports $(wc -l <<<"$foreign") foreign symbols, for example:"
    head -n 5 <<<"$foreign" | cut -c1-200
    status=1
  elif ! grep -qE ' (qel|CommonAPI|v1::qel)::' <<<"$symbols"; then
    echo "FAIL $library exports none of its own symbols"
    status=1
  else
    echo "ok   $library ($(wc -l <<<"$symbols") symbols)"
  fi
done
exit $status
