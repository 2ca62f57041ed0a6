#!/usr/bin/env bash
# Builds the fuzz target with clang into $VEXA_FUZZ_BUILD (default
# build-fuzz at the repository root) and prints the executable's path.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${VEXA_FUZZ_BUILD:-$root/build-fuzz}
cxx=${VEXA_FUZZ_CXX:-$(command -v clang++-14 || command -v clang++)}
launcher=()
if command -v ccache >/dev/null; then launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache); fi
cmake -S "$root/fuzz" -B "$build" -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_BUILD_TYPE=RelWithDebInfo "${launcher[@]}" >/dev/null
cmake --build "$build" --target vexa_fuzz -j2 >&2
echo "$build/vexa_fuzz"
