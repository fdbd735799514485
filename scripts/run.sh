#!/usr/bin/env bash
# Sets up, builds and runs the main job: until the command-line tool exists, the example program
# that shows the library's conversions and error reporting without hardware.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh
cmake --preset release >/dev/null
cmake --build --preset release --target vx_example -j "$(nproc)"
build/release/examples/vx_example
