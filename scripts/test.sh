#!/usr/bin/env bash
# Builds the library, the program, the examples and the tests in build/ and
# runs every test. Installs missing Debian packages first.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup-deps.sh
cmake --preset release
cmake --build --preset release
ctest --preset release
