#!/bin/sh
# Installs the Debian 12 packages that building, testing, fuzzing, cross-building, the manual pages and the
# Debian packages (and their check in a fresh root) need, or the packages named as arguments. Skips
# apt when everything is there already.
set -eu
packages="build-essential cmake ninja-build pkg-config binutils clang libclang-rt-14-dev libboost-dev googletest libgtest-dev libgmock-dev libbenchmark-dev g++-arm-linux-gnueabihf qemu-user libssl-dev openssl rsyslog rsyslog-openssl rsyslog-relp logrotate scdoc man-db gzip dpkg-dev file debootstrap util-linux"
[ $# -eq 0 ] || packages="$*"
missing=""
for p in $packages; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "ok installed" || missing="$missing $p"
done
if [ -n "$missing" ]; then
  sudo=""
  [ "$(id -u)" -eq 0 ] || sudo="sudo"
  echo "installing:$missing"
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends $missing
fi
# The remote and journal targets' libraries for the armhf cross build.
[ $# -ne 0 ] || "$(dirname "$0")/install-armhf-libs.sh"
