#!/bin/sh
# Builds the Debian packages into build/packages/: libvexlor1, libvexlor-dev, vexlor-tools and
# one vexlor-target-<name> per target that needs a library of its own.
#   scripts/package.sh            amd64 (the machine's own architecture)
#   scripts/package.sh armhf      cross-built with cmake/toolchains/armhf.cmake
#   scripts/package.sh <preset>   any configure preset, or a toolchain file (path ending in .cmake)
# Installed paths are those of a Debian system whatever the preset says: /usr, the multiarch
# library directory, /etc/vexlor.
set -eu
cd "$(dirname "$0")/.."
scripts/install-deps.sh
choice="${1:-release}"
case "$choice" in
  *.cmake) name=$(basename "$choice" .cmake); configure="--toolchain $choice" ;;
  *) name="$choice"; configure="--preset $choice" ;;
esac
build="build/package-$name"
out="build/packages"
system="-DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX=/usr -DVEXLOR_BUILD_TESTS=OFF -DVEXLOR_BUILD_EXAMPLES=OFF
  -DVEXLOR_BUILD_BENCHMARKS=OFF -DVEXLOR_CONFIG_DIR=/etc/vexlor -DVEXLOR_LEGACY_LEVEL_FILE=/etc/tarsinlog.cfg
  -DVEXLOR_SYSLOGD_PID_FILE=/var/run/syslogd.pid"
# shellcheck disable=SC2086 # word splitting intended
cmake -S . -B "$build" -G Ninja $configure $system >/dev/null
# The compiler names the target; Debian names its architecture and library directory.
compiler=$(sed -n 's/^set(CMAKE_C_COMPILER "\(.*\)")$/\1/p' "$build"/CMakeFiles/*/CMakeCCompiler.cmake)
triplet=$("$compiler" -dumpmachine)
arch=$(dpkg-architecture -t "$triplet" -qDEB_HOST_ARCH 2>/dev/null)
multiarch=$(dpkg-architecture -t "$triplet" -qDEB_HOST_MULTIARCH 2>/dev/null)
# shellcheck disable=SC2086
cmake -S . -B "$build" $configure $system -DCMAKE_INSTALL_LIBDIR="lib/$multiarch" \
  -UVEXLOR_PLUGIN_DIR -DVEXLOR_DEB_ARCHITECTURE="$arch" >/dev/null
cmake --build "$build"
if [ "$arch" != "$(dpkg --print-architecture)" ]; then
  # A cross build: the target's C and C++ libraries are those of Debian's cross toolchain
  # (/usr/<triplet>/lib), whose package files name the cross packages. dpkg-shlibdeps is told
  # where they are, and its answer is turned into the target system's package names. Libraries
  # unpacked there by scripts/install-armhf-libs.sh belong to no package: their packages' shlibs
  # lines, kept in /usr/<triplet>/shlibs, are handed over as debian/shlibs.local.
  shim="$build/cross-shlibdeps"
  mkdir -p "$shim"
  cat > "$shim/dpkg-shlibdeps" <<SHIM
#!/bin/sh
[ ! -f /usr/$triplet/shlibs ] || [ ! -d debian ] || cp /usr/$triplet/shlibs debian/shlibs.local
deps=\$(/usr/bin/dpkg-shlibdeps -l/usr/$triplet/lib "\$@") || exit \$?
printf '%s\\n' "\$deps" | sed -e 's/:$arch//g' -e 's/-$arch-cross//g'
SHIM
  chmod +x "$shim/dpkg-shlibdeps"
  PATH="$PWD/$shim:$PATH"
fi
mkdir -p "$out"
(cd "$build" && cpack -B "$PWD/../packages" >/dev/null)
rm -rf "$out/_CPack_Packages"
ls -1 "$out"/*_"$arch".deb
