#!/bin/sh
# Fails when a C or C++ source differs from what clang-format (.clang-format) writes; lists them.
set -eu
cd "$(dirname "$0")/.."
scripts/install-deps.sh clang-format
status=0
for file in $(git ls-files '*.c' '*.cpp' '*.h'); do
  if ! clang-format "$file" | cmp -s "$file" -; then
    echo "not formatted: $file (clang-format -i $file)"
    status=1
  fi
done
[ $status -ne 0 ] || echo "format: every source as clang-format writes it"
exit $status
