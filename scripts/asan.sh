#!/usr/bin/env bash
# The whole test suite under AddressSanitizer + UBSan, leaks fatal.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup-deps.sh
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
cmake --preset asan
cmake --build --preset asan
ctest --preset asan
