#!/bin/sh
# Installs the benchmark's packages (Google Benchmark and the peer loggers), builds the 'bench'
# preset and prints two tables: vexlor against the peer loggers (also drawn as an SVG chart), and
# the message formatter against vsnprintf. Medians of the repetitions (default 10), in random interleaving.
set -eu
cd "$(dirname "$0")/.."
scripts/install-bench-deps.sh
repetitions=${1:-10}
cmake --preset bench >/dev/null
cmake --build --preset bench
for binary in vexlor_bench vexlor_format_bench; do
  report=build/bench/$binary.json
  build/bench/bench/$binary --benchmark_repetitions="$repetitions" --benchmark_enable_random_interleaving=true \
    --benchmark_report_aggregates_only=true --benchmark_format=json >"$report"
  echo
  python3 scripts/benchTable.py "$report"
done
# The peer comparison as a chart, for docs/performance.md.
python3 scripts/benchChart.py build/bench/vexlor_bench.json build/bench/peers.svg
echo "chart: build/bench/peers.svg"

