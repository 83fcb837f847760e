#!/bin/sh
# Puts the armhf build of OpenSSL (for the remote target) into the cross toolchain's tree
# /usr/arm-linux-gnueabihf, where the armhf preset compiles and links and qemu-arm loads libraries.
# The packages are fetched with a private apt state for armhf only and unpacked, not installed: the
# machine's dpkg architectures stay as they are, and the versions need not match the host's
# packages of the same names.
set -eu
root=/usr/arm-linux-gnueabihf
[ -e "$root/lib/libssl.so" ] && [ -e "$root/shlibs" ] && exit 0
packages="libssl-dev libssl3"
sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/lists/partial" "$work/cache/archives/partial" "$work/debs" "$work/tree"
apt="apt-get -qq -o Dir::State::Lists=$work/lists -o Dir::Cache=$work/cache -o APT::Architecture=armhf -o APT::Architectures=armhf -o APT::Sandbox::User=root"
echo "fetching for armhf: $packages"
# An index that fails to download (a mirror in sync) is no reason to stop while the packages are found.
$apt update || true
(cd "$work/debs" && $apt download $packages)
for deb in "$work"/debs/*.deb; do
  dpkg-deb -x "$deb" "$work/tree"
  # The packages' own library-to-dependency lines: scripts/package.sh armhf names them in the
  # Depends of the targets that link these libraries.
  dpkg-deb -I "$deb" shlibs >>"$work/shlibs" 2>/dev/null || true
done
$sudo mkdir -p "$root/lib" "$root/include"
for dir in "$work/tree/lib/arm-linux-gnueabihf" "$work/tree/usr/lib/arm-linux-gnueabihf"; do
  [ -d "$dir" ] && $sudo cp -a "$dir/." "$root/lib/"
done
$sudo cp -a "$work/tree/usr/include/openssl" "$root/include/"
$sudo cp -a "$work/tree/usr/include/arm-linux-gnueabihf/openssl/." "$root/include/openssl/"
$sudo cp "$work/shlibs" "$root/shlibs"
