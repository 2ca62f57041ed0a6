#!/usr/bin/env bash
# The thread tests under ThreadSanitizer, in a build of its own
# ($VEXA_TSAN_BUILD, default build-tsan). Fails on any reported data race.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${VEXA_TSAN_BUILD:-$root/build-tsan}
bash "$root/scripts/setup-deps.sh"
flags="-fsanitize=thread -fno-omit-frame-pointer -g -O1"
cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DVEXA_BUILD_TOOLS=OFF -DVEXA_BUILD_EXAMPLES=OFF -DVEXA_BUILD_BENCH=OFF -DVEXA_SANITIZE=OFF \
  -DCMAKE_CXX_FLAGS="$flags" \
  -DCMAKE_EXE_LINKER_FLAGS="-fsanitize=thread" -DCMAKE_SHARED_LINKER_FLAGS="-fsanitize=thread" >/dev/null
tests=(test_threads test_threads_compiled test_c_api)
cmake --build "$build" --target "${tests[@]}" -j2
export TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1 ${TSAN_OPTIONS:-}"
# Kernels with high mmap randomisation break the sanitizer's memory layout;
# running without address randomisation avoids that where setarch allows it.
for name in "${tests[@]}"; do
  test=$build/tests/$name
  if setarch "$(uname -m)" -R true 2>/dev/null; then
    setarch "$(uname -m)" -R "$test"
  else
    "$test"
  fi
done
