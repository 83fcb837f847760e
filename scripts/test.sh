#!/bin/sh
# Sets up what is missing, builds and runs the test suite. With no argument: the normal build.
# Arguments name further presets to run as well: asan, tsan, clang, portable, armhf (or "all" for every one).
set -eu
cd "$(dirname "$0")/.."
scripts/install-deps.sh
presets="dev"
for arg in "$@"; do
  case "$arg" in
    all) presets="dev asan tsan clang portable armhf" ;;
    *) presets="$presets $arg" ;;
  esac
done
for preset in $presets; do
  echo "=== $preset ==="
  start=$(date +%s)
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset"
  ctest --preset "$preset"
  # CI has a time budget for all presets together; this shows where it goes.
  echo "=== $preset: built and tested in $(($(date +%s) - start)) s ==="
done
