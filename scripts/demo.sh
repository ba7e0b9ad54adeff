#!/usr/bin/env bash
# The demo: an example application on the framework, against the backend and networking
# simulators, through a scripted story. Sets itself up on a fresh Debian 12 machine.
#   scripts/demo.sh                 run the story, print the timeline and a summary, write an SVG
#   scripts/demo.sh --interactive   keep the application running until Ctrl-C; drive it from the two
#                                   consoles whose addresses it prints (or with curl)
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh
cmake --preset default >/dev/null
cmake --build --preset default --target qel-demo-app qel-backend-sim qel-networking-sim
exec python3 scripts/demo.py --build build/default "$@"
