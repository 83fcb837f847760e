#!/bin/sh
# Builds the libFuzzer targets of tests/fuzz (preset 'fuzz', clang) and runs each for its share of
# the given number of seconds (default 60). What a run finds stays in build/fuzz/corpus/<target>
# and is where the next run starts, beside the seed files of tests/fuzz/corpus/<target> if there are
# any; a failing input is saved as build/fuzz/artifacts/<target>-crash-*.
set -eu
cd "$(dirname "$0")/.."
scripts/install-deps.sh
seconds=${1:-60}
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz --target vexlor_fuzzers
targets=$(cat build/fuzz/tests/fuzz/fuzzers.txt)
share=$((seconds / $(echo "$targets" | wc -w)))
[ "$share" -ge 1 ] || share=1
mkdir -p build/fuzz/artifacts
for target in $targets; do
  echo "=== $target: $share s ==="
  mkdir -p "build/fuzz/corpus/$target"
  seeds=""
  [ ! -d "tests/fuzz/corpus/$target" ] || seeds="tests/fuzz/corpus/$target"
  build/fuzz/tests/fuzz/$target -max_total_time="$share" -print_final_stats=1 \
    -artifact_prefix="build/fuzz/artifacts/$target-" "build/fuzz/corpus/$target" $seeds
done
