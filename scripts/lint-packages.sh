#!/usr/bin/env bash
# lintian on every Debian package that scripts/package.sh built; fails on any error.
#   scripts/lint-packages.sh [PACKAGE_DIR]      default: build/packages
set -euo pipefail
cd "$(dirname "$0")/.."
dir="${1:-build/packages}"
bash scripts/setup.sh
mapfile -t debs < <(find "$dir" -maxdepth 1 -name '*.deb' | sort)
[ ${#debs[@]} -gt 0 ] || { echo "lint-packages: no packages in $dir (run scripts/package.sh)"; exit 1; }
report="$(lintian --tag-display-limit 0 "${debs[@]}" 2>&1 || true)"
[ -z "$report" ] || echo "$report"
errors=$(grep -c '^E: ' <<<"$report" || true)
warnings=$(grep -c '^W: ' <<<"$report" || true)
echo "lint-packages: ${#debs[@]} packages, $errors errors, $warnings warnings"
[ "$errors" -eq 0 ]
