#!/usr/bin/env bash
# Builds the documentation site from docs/ with MkDocs (Debian's package,
# installed when missing) into site/ or the folder given, and fails on any
# warning (a broken link, a page left out of the navigation).
#   docs.sh [--no-install] [OUTPUT_DIR]
set -euo pipefail
cd "$(dirname "$0")/.."
install=1
if [ "${1:-}" = "--no-install" ]; then install=0; shift; fi
out=${1:-site}
if ! command -v mkdocs >/dev/null 2>&1; then
  [ $install = 1 ] || { echo "docs: mkdocs is not installed"; exit 1; }
  SUDO=""
  if [ "$(id -u)" -ne 0 ] && command -v sudo >/dev/null 2>&1; then SUDO="sudo"; fi
  echo "docs: installing mkdocs"
  export DEBIAN_FRONTEND=noninteractive
  $SUDO apt-get update -qq
  $SUDO apt-get install -y -qq mkdocs
fi
mkdocs build --strict --clean --site-dir "$out"
echo "docs: site in $out/index.html"
