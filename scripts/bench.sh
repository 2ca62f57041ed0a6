#!/usr/bin/env bash
# Builds the benchmarks in build-bench/ and runs the side-by-side comparison
# (native C++, muParser, vexa and its derivative calculators) on one pinned
# core; prints the table and the geometric means. Extra arguments go to the
# benchmark, e.g. --benchmark_filter='^7[2-9]/'.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
bash "$root/scripts/setup-deps.sh"
if ! [ -e /usr/include/muParser.h ]; then
  echo "bench: installing libmuparser-dev (the peer the comparison measures)"
  DEBIAN_FRONTEND=noninteractive apt-get install -y -qq libmuparser-dev >/dev/null
fi
cmake -S "$root" -B "$root/build-bench" -DCMAKE_BUILD_TYPE=Release -DVEXA_BUILD_BENCH=ON \
  -DVEXA_BUILD_TESTS=OFF -DVEXA_BUILD_TOOLS=OFF -DVEXA_BUILD_EXAMPLES=OFF >/dev/null
cmake --build "$root/build-bench" --target bench_compare -j2
cpu=$(( $(nproc) - 1 ))
taskset -c "$cpu" "$root/build-bench/bench/bench_compare" --benchmark_repetitions=5 \
  --benchmark_min_time=0.1 "$@" 2>/dev/null | sed -n '/^   #/,$p'
