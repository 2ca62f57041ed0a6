#!/usr/bin/env bash
# fuzz/run.sh SECONDS: builds the fuzz target, replays every saved finding in
# fuzz/regressions, then fuzzes for SECONDS. Exits non-zero when a saved
# finding still fails or fuzzing finds something new; the input that did it
# is left under $build/artifacts/ (copy it into fuzz/regressions/ under a
# name that says what it broke, so the test suite replays it from then on).
set -euo pipefail
seconds=${1:?usage: fuzz/run.sh SECONDS}
root=$(cd "$(dirname "$0")/.." && pwd)
export VEXA_FUZZ_BUILD=${VEXA_FUZZ_BUILD:-$root/build-fuzz}
build=$VEXA_FUZZ_BUILD

bash "$root/scripts/setup-deps.sh"
fuzzer=$(bash "$root/fuzz/build.sh")

# One input may differentiate up to the node budget (about a million nodes,
# freed at once); that takes seconds under the sanitizers, never minutes. A
# small quarantine and giving freed memory back to the system keep the
# resident size near that of the largest input over a long run.
opts=(-max_len=8192 -timeout=60 -rss_limit_mb=6144 -print_final_stats=1 -dict="$root/fuzz/vexa.dict")
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1:quarantine_size_mb=32:allocator_release_to_os_interval_ms=1000}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}

shopt -s nullglob
saved=()
for f in "$root"/fuzz/regressions/*; do
  case $(basename "$f") in README*) continue ;; esac
  saved+=("$f")
done
if [ ${#saved[@]} -gt 0 ]; then
  echo "== replaying ${#saved[@]} saved findings"
  if ! "$fuzzer" "${opts[@]}" "${saved[@]}" > "$build/replay.log" 2>&1; then
    grep -v '^Executed ' "$build/replay.log" | tail -60
    echo "fuzz: a saved finding fails again; log: $build/replay.log"
    exit 1
  fi
fi

seeds=$build/seeds
corpus=$build/corpus
artifacts=$build/artifacts
rm -rf "$seeds"
mkdir -p "$corpus" "$artifacts"
bash "$root/fuzz/make_corpus.sh" "$seeds"

echo "== fuzzing for $seconds s"
status=0
"$fuzzer" "${opts[@]}" -max_total_time="$seconds" -artifact_prefix="$artifacts/" \
  "$corpus" "$seeds" > "$build/fuzz.log" 2>&1 || status=$?
grep -E '^(stat::|Done|==[0-9]+==ERROR|SUMMARY|vexa_fuzz:)' "$build/fuzz.log" || true
# Whether the run explored: coverage (cov: edges, ft: features) when the
# initial corpus was loaded and at the end, the units mutation added, and
# the pace. INITED #N ... exec/s: R puts the loading at about N / R seconds.
inited=$(grep -m1 -E '^#[0-9]+[[:space:]]+INITED' "$build/fuzz.log" || true)
last=$(grep -E '^#[0-9]+[[:space:]]+(NEW|REDUCE|pulse|DONE|RELOAD)' "$build/fuzz.log" | tail -1 || true)
found=$(grep -cE '^#[0-9]+[[:space:]]+NEW' "$build/fuzz.log" || true)
echo "fuzz: corpus loaded: ${inited:-never (the run ended first)}"
echo "fuzz: at the end:    ${last:-no status line}"
if [ -n "$inited" ]; then
  echo "$inited" | awk -v total="$seconds" -v found="$found" '{
    for (i = 1; i < NF; i++) if ($i == "exec/s:") rate = $(i + 1)
    runs = substr($1, 2)
    load = rate > 0 ? runs / rate : total
    printf "fuzz: %d new units; about %d s of %d s loading the corpus, the rest exploring\n", found, load, total
  }'
fi
if [ $status -ne 0 ]; then
  echo "fuzz: finding (exit $status); log: $build/fuzz.log"
  tail -60 "$build/fuzz.log"
  ls -l "$artifacts"
  exit 1
fi
echo "fuzz: nothing found in $seconds s"
