#!/usr/bin/env bash
# Builds the benchmarks in build-bench/ and runs, on one pinned core, the
# side-by-side comparisons: scalar expressions as native C++, through the
# peers ExprTk and muParser, and through vexa and its derivative calculators
# (bench_compare); vector and matrix expressions as native C++, Eigen and
# vexa (bench_vecmat). Every side is timed in thread CPU time, repetitions
# interleaved at random; prints the tables and the geometric means of the
# least and of the median times. Extra arguments go to both benchmarks, e.g.
# --benchmark_repetitions=15; BENCH_ONLY=compare or BENCH_ONLY=vecmat runs
# one of them.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
bash "$root/scripts/setup-deps.sh"
if ! [ -e /usr/include/muParser.h ]; then
  echo "bench: installing libmuparser-dev (a peer the comparison measures)"
  DEBIAN_FRONTEND=noninteractive apt-get install -y -qq libmuparser-dev >/dev/null
fi
if ! [ -e "$root/../shared/bench/peers/exprtk/exprtk.hpp" ]; then
  echo "bench: ../shared/bench/peers/exprtk is absent; the tables leave ExprTk out"
fi
launcher=()
if command -v ccache >/dev/null 2>&1; then
  launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_C_COMPILER_LAUNCHER=ccache)
fi
cmake -S "$root" -B "$root/build-bench" -DCMAKE_BUILD_TYPE=Release -DVEXA_BUILD_BENCH=ON \
  -DVEXA_BUILD_TESTS=OFF -DVEXA_BUILD_TOOLS=OFF -DVEXA_BUILD_EXAMPLES=OFF "${launcher[@]}" >/dev/null
if ! cmake --build "$root/build-bench" --target bench_compare bench_vecmat -j2 >"$root/build-bench/build.log" 2>&1; then
  cat "$root/build-bench/build.log"
  exit 1
fi
cpu=$(( $(nproc) - 1 ))
run() {
  taskset -c "$cpu" "$root/build-bench/bench/$1" --benchmark_repetitions=9 \
    --benchmark_enable_random_interleaving=true --benchmark_min_time=0.05 "${@:2}" 2>/dev/null |
    sed -n '/^   #/,$p'
}
status=0
if [ "${BENCH_ONLY:-compare}" = compare ]; then
  run bench_compare "$@" || status=1
fi
if [ "${BENCH_ONLY:-vecmat}" = vecmat ]; then
  echo
  run bench_vecmat "$@" || status=1
fi
exit $status
