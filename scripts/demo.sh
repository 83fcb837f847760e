#!/bin/sh
# Sets up what is missing, builds and runs the demo (about fifteen seconds).
set -eu
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake --preset demo >/dev/null
cmake --build --preset demo
exec build/demo/examples/vexlor-demo
