#!/usr/bin/env bash
# Installs the build tree into a scratch prefix, then builds a host with
# find_package(vexa CONFIG), another with pkg-config and the C example with
# nothing but a C99 compiler, and runs them.
set -euo pipefail
build=$1
src=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cmake --install "$build" --prefix "$work/prefix" >/dev/null
for f in include/vexa/vexa.h include/vexa/vexa_c.h lib/libvexa.so lib/cmake/vexa/vexaConfig.cmake lib/pkgconfig/vexa.pc; do
  [ -e "$work/prefix/$f" ] || { echo "missing $f in the installed package"; exit 1; }
done
cmake -S "$src" -B "$work/cm" -DCMAKE_PREFIX_PATH="$work/prefix" -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$work/cm" >/dev/null
LD_LIBRARY_PATH="$work/prefix/lib" "$work/cm/host"
if command -v pkg-config >/dev/null; then
  # shellcheck disable=SC2046
  PKG_CONFIG_PATH="$work/prefix/lib/pkgconfig" g++ -o "$work/pc_host" "$src/host.cpp" \
    $(PKG_CONFIG_PATH="$work/prefix/lib/pkgconfig" pkg-config --cflags --libs vexa)
  LD_LIBRARY_PATH="$work/prefix/lib" "$work/pc_host"
fi
if command -v gcc >/dev/null; then
  gcc -std=c99 -Wall -Wextra -pedantic -Werror -o "$work/c_host" "$src/../../examples/c_host.c" \
    -I"$work/prefix/include" -L"$work/prefix/lib" -lvexa -lm
  LD_LIBRARY_PATH="$work/prefix/lib" "$work/c_host" >/dev/null
fi
if command -v gfortran >/dev/null; then
  # The installed module compiled by the host's compiler, as the header says.
  [ -e "$work/prefix/include/vexa/vexa.f90" ] || { echo "missing include/vexa/vexa.f90"; exit 1; }
  (cd "$work" && gfortran -std=f2008 -Wall -o "$work/f_host" "$work/prefix/include/vexa/vexa.f90" \
    "$src/../../examples/fortran_host.f90" -L"$work/prefix/lib" -lvexa -Wl,-rpath,"$work/prefix/lib")
  "$work/f_host" >/dev/null
fi
