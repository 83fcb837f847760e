#!/bin/sh
# Prints the stripped sizes of libvexlor.so.1 and of every plug-in built under targets/ and
# examples/ of a build directory, with that build's own strip, and the runtime a device carries
# (the library with the console, file, syslog, remote and control targets) against its goals.
# Without an argument it builds the preset armhf-size (MinSizeRel for 32-bit ARM) first.
# Usage: scripts/sizes.sh [build-dir]
set -eu
cd "$(dirname "$0")/.."
build="${1:-build/armhf-size}"
if [ $# -eq 0 ]; then
  cmake --preset armhf-size >/dev/null
  cmake --build --preset armhf-size >/dev/null
fi
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
librarySize=$(size_of "$library")
printf '%10s  %s\n' "$librarySize" "libvexlor.so.1"
# Plug-ins are the MODULE libraries: plain *.so files (shared libraries' *.so are links).
for dir in targets examples; do
  [ -d "$build/$dir" ] || continue
  find "$build/$dir" -name CMakeFiles -prune -o -type f -name '*.so' -print | sort | while read -r plugin; do
    printf '%10s  %s\n' "$(size_of "$plugin")" "${plugin#"$build"/}"
  done
done

runtime=$librarySize
for name in console file syslog remote control; do
  plugin="$build/targets/$name/libvexlor-$name.so"
  [ -e "$plugin" ] && runtime=$((runtime + $(size_of "$plugin")))
done
echo "library: $librarySize bytes (goal 65536); library + console, file, syslog, remote, control: $runtime bytes (goal 163840)"
