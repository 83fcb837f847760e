#!/bin/sh
# Installs what the benchmarks need beyond the build: Google Benchmark and the peer loggers they
# are measured against, and python3 for the table. Not part of the test set-up.
exec "$(dirname "$0")/install-deps.sh" libbenchmark-dev libspdlog-dev libgoogle-glog-dev liblog4cxx-dev libboost-log-dev python3
