#!/bin/sh
# Installs what the benchmarks need beyond the build: Google Benchmark and the peer loggers they
# are measured against. Not part of the test set-up (tools/install-deps.sh).
set -eu
packages="libbenchmark-dev libspdlog-dev libgoogle-glog-dev liblog4cxx-dev libboost-log-dev"
missing=""
for p in $packages; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "ok installed" || missing="$missing $p"
done
[ -z "$missing" ] && exit 0
sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"
echo "installing:$missing"
$sudo apt-get update -qq
DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends $missing
