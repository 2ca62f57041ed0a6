#!/usr/bin/env bash
# The main job: builds everything and runs the vexa command over the bundled
# example expressions, printing parameters, values and derivatives and writing
# one SVG plot per plottable expression into plots/.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup-deps.sh
cmake --preset release >/dev/null
cmake --build --preset release
build/tools/vexa demo examples/expressions.txt --out plots/
