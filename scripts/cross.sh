#!/usr/bin/env bash
# Builds the library, the program, the examples and the tests for another
# target and runs every test there under an emulator:
#   bash scripts/cross.sh windows   Windows x64 (MinGW-w64), tests under Wine, in build-windows/
#   bash scripts/cross.sh aarch64   Linux AArch64, tests under qemu-user, in build-aarch64/
# Installs missing Debian packages first. Extra arguments go to ctest (for
# example -R to run some tests only). VEXA_CROSS_JOBS sets the parallelism.
set -euo pipefail
cd "$(dirname "$0")/.."

target=${1:-}
shift || true
case $target in
  windows)
    wanted=(
      "g++-mingw-w64-x86-64-posix:/usr/bin/x86_64-w64-mingw32-g++-posix"
      "wine64:/usr/lib/wine/wine64"
      "wine:/usr/bin/wine"
      "gfortran-mingw-w64-x86-64-posix:/usr/bin/x86_64-w64-mingw32-gfortran-posix"
    ) ;;
  aarch64)
    wanted=(
      "g++-aarch64-linux-gnu:/usr/bin/aarch64-linux-gnu-g++"
      "qemu-user:/usr/bin/qemu-aarch64"
      "gfortran-aarch64-linux-gnu:/usr/bin/aarch64-linux-gnu-gfortran"
    ) ;;
  *)
    echo "usage: bash scripts/cross.sh windows|aarch64 [ctest arguments]" >&2
    exit 2 ;;
esac
wanted+=(
  "cmake:/usr/bin/cmake"
  "make:/usr/bin/make"
  "libgtest-dev:/usr/src/googletest/CMakeLists.txt"
  "libcli11-dev:/usr/share/cmake/CLI11/CLI11Config.cmake"
)

SUDO=""
if [ "$(id -u)" -ne 0 ] && command -v sudo >/dev/null 2>&1; then SUDO="sudo"; fi
missing=()
for entry in "${wanted[@]}"; do
  [ -e "${entry#*:}" ] || missing+=("${entry%%:*}")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "== installing ${missing[*]}"
  # Exit status 3 says the toolchain could not be installed (no package
  # index reachable, no rights), as opposed to a build or test failure.
  $SUDO apt-get update -qq || { echo "   the package index is not reachable"; exit 3; }
  # A Fortran cross compiler the archive lacks only leaves the Fortran example out.
  for pkg in "${missing[@]}"; do
    if [[ $pkg == gfortran-* ]] && ! apt-cache show "$pkg" >/dev/null 2>&1; then
      echo "   $pkg is not available: the Fortran example is not built"
      continue
    fi
    DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends "$pkg" \
      || { echo "   $pkg could not be installed"; exit 3; }
  done
fi

build=build-$target
jobs=${VEXA_CROSS_JOBS:-2}
launcher=()
if command -v ccache >/dev/null 2>&1; then
  launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_C_COMPILER_LAUNCHER=ccache)
fi

if [ "$target" = windows ]; then
  # Wine's own prefix for these runs, set up once, without its dialogs.
  export WINEPREFIX=${WINEPREFIX:-$PWD/$build/wine}
  export WINEDEBUG=${WINEDEBUG:--all}
  export WINEDLLOVERRIDES=${WINEDLLOVERRIDES:-mscoree,mshtml=}
  mkdir -p "$build"
  if [ ! -f "$WINEPREFIX/system.reg" ]; then
    echo "== preparing the Wine prefix $WINEPREFIX"
    wineboot -i >/dev/null 2>&1 || true
  fi
  # One server for the whole run instead of one per test program, with its
  # services started here: started by a test program, they would hold its
  # output open (and CTest waiting) for as long as the server lives.
  wineserver -p >/dev/null 2>&1 || true
  wine wineboot >/dev/null 2>&1 </dev/null || true
fi

mkdir -p "$build"
echo "== configuring $build"
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Release \
  -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/toolchain-$target.cmake" "${launcher[@]}" > "$build/cross-configure.log" 2>&1 \
  || { cat "$build/cross-configure.log"; exit 1; }
echo "== building $build"
cmake --build "$build" -j"$jobs" > "$build/cross-build.log" 2>&1 || { tail -n 60 "$build/cross-build.log"; exit 1; }
if grep -q "warning:" "$build/cross-build.log"; then
  echo "== compiler warnings:"
  # The head stops the grep early: that is no failure of the build.
  grep -A3 "warning:" "$build/cross-build.log" | head -n 40 || true
fi

# The million-expression arena test (12 s natively, many minutes emulated
# once these targets make machine code) is left out under emulation, as are
# the long fuzzing and benchmark targets, which are not built here.
echo "== testing $build"
status=0
ctest --test-dir "$build" -j"$jobs" --output-on-failure -E MillionExpressions "$@" > "$build/cross-test.log" 2>&1 \
  || status=$?
# An emulator occasionally fails a program at its start-up (Wine's services
# starting under a parallel run): the failed tests run once more, alone and
# named in the output, and only a second failure counts.
if [ "$status" -ne 0 ] && grep -q "tests failed out of" "$build/cross-test.log"; then
  echo "== running the failed tests again:"
  sed -n '/The following tests FAILED/,$p' "$build/cross-test.log" | grep -E "^[[:space:]]+[0-9]+ - " || true
  cp "$build/cross-test.log" "$build/cross-test-first.log"
  status=0
  ctest --test-dir "$build" -j1 --output-on-failure --rerun-failed > "$build/cross-test.log" 2>&1 || status=$?
fi
grep -E "^ *[0-9]+/[0-9]+ Test +#[0-9]+: .*(\*\*\*|Not Run|Skipped)" "$build/cross-test.log" | head -n 60 || true
sed -n '/tests passed/,$p' "$build/cross-test.log"
if [ "$target" = windows ]; then wineserver -k >/dev/null 2>&1 || true; fi
exit "$status"
