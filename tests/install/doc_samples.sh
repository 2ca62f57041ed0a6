#!/usr/bin/env bash
# Runs the README's host commands as written, from a fresh shell without a
# library path: the blocks marked <!-- readme-test: NAME --> are taken out of
# README.md, with /opt/vexa standing for a scratch prefix that the build tree
# is installed into.
#   readme_commands.sh BUILD_DIR SOURCE_DIR
set -euo pipefail
build=$1
src=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
unset LD_LIBRARY_PATH PKG_CONFIG_PATH
prefix=$work/opt/vexa

# The fenced block after the marker, its fences left out.
block() {
  awk -v name="$1" '
    $0 == "<!-- readme-test: " name " -->" { armed = 1; next }
    armed && /^```/ { if (inside) exit; inside = 1; next }
    inside { print }' "$src/README.md"
}
run() {
  local text
  text=$(block "$1" | sed "s#/opt/vexa#$prefix#g")
  [ -n "$text" ] || { echo "README has no block marked readme-test: $1"; exit 1; }
  (cd "$work" && bash -euo pipefail -c "$text") || { echo "README block '$1' failed:"; echo "$text"; exit 1; }
}

# Hosts build in a folder of their own, not in the test build's.
block install | grep -q -- '-B build-host' || { echo "the README's host build does not use build-host"; exit 1; }
block install | grep '^cmake --install' | sed "s#/opt/vexa#$prefix#; s#build-host#$build#" | bash -euo pipefail >/dev/null

block host.cpp > "$work/host.cpp"
block host.c > "$work/host.c"
cp "$src/examples/fortran_host.f90" "$work/"
run cpp
echo "README C++ host: ok"
if command -v gcc >/dev/null; then
  run c
  echo "README C host: ok"
fi
if command -v gfortran >/dev/null; then
  run fortran
  echo "README Fortran host: ok"
fi
