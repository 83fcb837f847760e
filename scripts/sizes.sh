#!/bin/sh
# Prints the stripped sizes of libvexlor.so.1 and of every plug-in built under targets/ and
# examples/ of a build directory (default: build/armhf), with that build's own strip.
# Usage: scripts/sizes.sh [build-dir]
set -eu
cd "$(dirname "$0")/.."
build="${1:-build/armhf}"
[ -f "$build/CMakeCache.txt" ] || { echo "sizes.sh: $build is not a configured build directory" >&2; exit 1; }
strip=$(sed -n 's/^CMAKE_STRIP:FILEPATH=//p' "$build/CMakeCache.txt")
[ -n "$strip" ] || strip="strip"
library="$build/src/libvexlor.so.1"
[ -e "$library" ] || { echo "sizes.sh: $library is not built" >&2; exit 1; }

tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
size_of() {
  "$strip" -o "$tmp/stripped" "$1"
  wc -c <"$tmp/stripped" | tr -d ' '
}

echo "stripped sizes in bytes ($(basename "$strip"), $build):"
printf '%10s  %s\n' "$(size_of "$library")" "libvexlor.so.1"
# Plug-ins are the MODULE libraries: plain *.so files (shared libraries' *.so are links).
for dir in targets examples; do
  [ -d "$build/$dir" ] || continue
  find "$build/$dir" -name CMakeFiles -prune -o -type f -name '*.so' -print | sort | while read -r plugin; do
    printf '%10s  %s\n' "$(size_of "$plugin")" "${plugin#"$build"/}"
  done
done
