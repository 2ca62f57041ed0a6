#!/usr/bin/env bash
# Writes a seed corpus into OUTDIR: the committed seeds, a sample of the
# benchmark expression sets (read where they lie, never copied into the
# repository), and the wide string literals of the tests and examples.
# One expression per file, without a parameter list.
set -euo pipefail
out=${1:?usage: make_corpus.sh OUTDIR}
root=$(cd "$(dirname "$0")/.." && pwd)
bench=${VEXA_BENCH_DIR:-$root/../shared/bench}
mkdir -p "$out"

# Seeds that take seconds each under the sanitizers (derivatives up to the
# node budget, calls 100 levels deep) stay out: libFuzzer runs every seed
# before it mutates any, and would pick these as parents of slow mutants.
# The test suite (test_fuzz_regressions) replays every seed all the same.
replay_only=" deep_unary_plus_mix calls_100_deep registered_grown "
for f in "$root"/fuzz/seeds/*; do
  [ -f "$f" ] || continue
  case "$replay_only" in *" $(basename "$f") "*) continue ;; esac
  cp "$f" "$out"/
done

# At most this many lines per benchmark file, spread over the whole file. The
# initial pass over the corpus runs every seed before any mutation: with 300
# lines a file it took 75 s of a 120 s run (2,600 seeds, 900 kept), so a
# short run explored nothing; a sample of each set reaches nearly the same
# coverage, and mutation finds the rest.
per_file=${VEXA_FUZZ_SEEDS_PER_SET:-40}
if [ -d "$bench" ]; then
  for f in "$bench"/*.txt; do
    [ -f "$f" ] || continue
    base=$(basename "$f" .txt)
    LC_ALL=C awk -v out="$out" -v base="$base" -v cap="$per_file" '
      /^[ \t]*$/ || /^[ \t]*#/ { next }
      { sub(/\r$/, ""); lines[n++] = $0 }
      END {
        step = n > cap ? n / cap : 1
        for (i = 0; i < n && i / step < cap; i += step) {
          file = sprintf("%s/%s_%05d", out, base, int(i))
          printf "%s", lines[int(i)] > file
          close(file)
        }
      }' "$f"
  done
else
  echo "make_corpus: no benchmark sets at $bench; using the other seeds only" >&2
fi

# Expression texts the tests and examples already spell out.
i=0
for f in "$root"/tests/*.cpp "$root"/examples/*.cpp; do
  [ -f "$f" ] || continue
  { grep -oh 'L"[^"\\]*"' "$f" || true; } | sed 's/^L"//; s/"$//' | sort -u | while IFS= read -r lit; do
    [ -n "$lit" ] || continue
    i=$((i + 1))
    printf '%s' "$lit" > "$out/lit_$(basename "$f" .cpp)_$i"
  done
done
echo "make_corpus: $(ls "$out" | wc -l) seeds in $out" >&2
