#!/usr/bin/env bash
# Installs the Debian packages the build, the tests (the Fortran example, the
# Python module and the documentation site included), the fuzzer and the
# sanitizer scripts need, and generates the de_DE.UTF-8 locale that the
# locale test switches to.
# Does nothing for what is already there, so every script may call it first.
set -euo pipefail

SUDO=""
if [ "$(id -u)" -ne 0 ]; then
  if command -v sudo >/dev/null 2>&1; then SUDO="sudo"; fi
fi

# Package name, then a file whose presence shows it is installed (dpkg -s
# alone would miss packages that were removed but not purged).
wanted=(
  "cmake:/usr/bin/cmake"
  "g++:/usr/bin/g++"
  "make:/usr/bin/make"
  "libgtest-dev:/usr/include/gtest/gtest.h"
  "libgmock-dev:/usr/include/gmock/gmock.h"
  "libbenchmark-dev:/usr/include/benchmark/benchmark.h"
  "libcli11-dev:/usr/include/CLI/CLI.hpp"
  "clang-14:/usr/bin/clang++-14"
  "libclang-rt-14-dev:/usr/lib/llvm-14/lib/clang/14.0.6/lib/linux/libclang_rt.fuzzer-x86_64.a"
  "locales:/usr/sbin/locale-gen"
  "gfortran:/usr/bin/gfortran"
  "python3-dev:/usr/bin/python3-config"
  "pybind11-dev:/usr/lib/cmake/pybind11/pybind11Config.cmake"
  "python3-numpy:/usr/lib/python3/dist-packages/numpy/__init__.py"
  "python3-pytest:/usr/lib/python3/dist-packages/pytest/__init__.py"
  # pip install --no-build-isolation . (the package test), and the Dask recipe's test
  "python3-pip:/usr/lib/python3/dist-packages/pip/__init__.py"
  "python3-setuptools:/usr/lib/python3/dist-packages/setuptools/__init__.py"
  "python3-wheel:/usr/lib/python3/dist-packages/wheel/__init__.py"
  "python3-dask:/usr/lib/python3/dist-packages/dask/__init__.py"
  "python3-distributed:/usr/lib/python3/dist-packages/distributed/__init__.py"
  # scripts/docs.sh and the docs_site test
  "mkdocs:/usr/bin/mkdocs"
)

missing=()
for entry in "${wanted[@]}"; do
  pkg=${entry%%:*}
  file=${entry#*:}
  # The runtime's directory carries the full clang version; accept any.
  if [ "$pkg" = "libclang-rt-14-dev" ]; then
    if compgen -G "/usr/lib/llvm-14/lib/clang/*/lib/linux/libclang_rt.fuzzer-x86_64.a" >/dev/null; then
      continue
    fi
  elif [ -e "$file" ]; then
    continue
  fi
  missing+=("$pkg")
done

if [ ${#missing[@]} -gt 0 ]; then
  echo "setup-deps: installing ${missing[*]}"
  export DEBIAN_FRONTEND=noninteractive
  $SUDO apt-get update -qq
  $SUDO apt-get install -y -qq "${missing[@]}"
fi

# A locale whose decimal separator is a comma; the locale test skips without it.
if ! locale -a 2>/dev/null | grep -qix 'de_DE.utf8'; then
  echo "setup-deps: generating de_DE.UTF-8"
  if [ -w /etc/locale.gen ] || [ -n "$SUDO" ]; then
    if grep -q '^# *de_DE.UTF-8 UTF-8' /etc/locale.gen; then
      $SUDO sed -i 's/^# *de_DE.UTF-8 UTF-8/de_DE.UTF-8 UTF-8/' /etc/locale.gen
    elif ! grep -q '^de_DE.UTF-8 UTF-8' /etc/locale.gen; then
      echo 'de_DE.UTF-8 UTF-8' | $SUDO tee -a /etc/locale.gen >/dev/null
    fi
    $SUDO locale-gen >/dev/null || echo "setup-deps: locale-gen failed; the locale test will skip"
  else
    echo "setup-deps: no permission to generate de_DE.UTF-8; the locale test will skip"
  fi
fi
