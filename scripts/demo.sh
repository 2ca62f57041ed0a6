#!/usr/bin/env bash
# The main job: builds the library and the vexa command and runs it over the
# bundled example expressions, printing parameters, values and derivatives
# (exact, and as the derivative calculator gives them) and writing one SVG
# plot per swept expression into plots/.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup-deps.sh
cmake --preset release >/dev/null
# Only what the demo runs; scripts/test.sh builds the tests.
cmake --build --preset release --target vexa_cli
build/tools/vexa demo examples/expressions.txt --out plots/
