#!/usr/bin/env bash
# Runs every code sample of the README and of the documentation site as a
# reader would, from a fresh shell without a library path. A sample is a
# fenced block after a marker line <!-- test: KIND [ARGS] -->; /opt/vexa in
# it stands for a scratch prefix that the build tree is installed into. Kinds:
#   install       the host build; its `cmake --install` line is run on BUILD_DIR
#   file NAME     written to NAME in the page's scratch folder, for later samples
#   sh [needs=C]  run by bash in the page's folder (skipped without command C)
#   sh-check      too long to run here (benchmarks, pip): parsed by bash, and
#                 every file of this repository it names must exist
#   cpp, c        a complete program, compiled against the prefix and run
#   cpp-body      statements, compiled and run inside main()
#   cmake         CMake lines for a target my_host, built from host.cpp
#   python [sub=FROM:TO ...]  run with the built module (FROM replaced by TO
#                 to make a long run short)
#   pycon         an interpreter session, checked as a doctest
#   console       `$ ` command lines and their output; a line `...` stands
#                 for any lines
# A fenced block without a marker fails the test unless its language is text.
#   doc_samples.sh BUILD_DIR SOURCE_DIR
set -euo pipefail
build=$(cd "$1" && pwd)
src=$(cd "$2" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
unset LD_LIBRARY_PATH PKG_CONFIG_PATH PYTHONPATH
prefix=$work/opt/vexa
python=/usr/bin/python3
[ -x "$python" ] || python=python3
export PATH="$prefix/bin:$PATH"

pages=("$src/README.md")
for p in "$src"/docs/*.md; do pages+=("$p"); done

# Every marked block of a page as a file N in $2, its first line the marker's
# words and the page's line; unmarked fences are reported on stderr.
extract() {
  awk -v out="$2" -v page="$1" '
    /^<!-- test: .* -->$/ { kind = $0; sub(/^<!-- test: /, "", kind); sub(/ -->$/, "", kind); next }
    /^```/ {
      if (inside) { inside = 0; close(file); kind = ""; next }
      inside = 1
      if (kind == "") {
        if ($0 != "```text") print page ":" NR ": a code sample without a test marker" > "/dev/stderr"
        file = "/dev/null"; next
      }
      n++; file = sprintf("%s/%03d", out, n); print kind " @" NR > file; next
    }
    /^<!--/ { next }
    NF { if (!inside) kind = "" }
    inside { print > file }' "$1"
}

failed=0
samples=0
fail() { echo "FAILED: $*"; failed=1; }
subst() { sed "s#/opt/vexa#$prefix#g"; }

# The README introduces and points to the pages; reference material goes there.
[ "$(wc -l < "$src/README.md")" -le 300 ] || fail "README.md is longer than 300 lines: move reference material to docs/"

# The install sample's own install line, run on the build tree, makes the
# prefix; hosts build in a folder of their own, not in the test build's.
install=$(grep -h -A4 '^<!-- test: install -->' "${pages[@]}" || true)
grep -q -- '-B build-host' <<<"$install" || fail "no install sample, or its host build does not use build-host"
grep '^cmake --install' <<<"$install" | sed "s#/opt/vexa#$prefix#; s#build-host#$build#" | bash -euo pipefail >/dev/null
[ -e "$prefix/lib/libvexa.so" ] || { echo "FAILED: the install sample installs nothing"; exit 1; }

have_python=0
if [ -f "$build/python/vexa/__init__.py" ] && compgen -G "$build/python/vexa/_vexa*.so" >/dev/null; then
  have_python=1
fi
pyrun() { PYTHONPATH="$build/python" "$python" "$@"; }

for page in "${pages[@]}"; do
  name=$(basename "$page" .md)
  dir=$work/pages/$name
  mkdir -p "$dir/blocks"
  extract "$page" "$dir/blocks" 2>"$dir/unmarked"
  [ ! -s "$dir/unmarked" ] || { cat "$dir/unmarked"; failed=1; }
  # Files first: a page may show a command before the file it compiles.
  for b in "$dir"/blocks/*; do
    [ -e "$b" ] || continue
    read -r kind arg _ < "$b"
    [ "$kind" = file ] && tail -n +2 "$b" > "$dir/$arg"
  done
  for b in "$dir"/blocks/*; do
    [ -e "$b" ] || continue
    header=$(head -1 "$b")
    read -ra words <<<"${header% @*}"
    kind=${words[0]}
    where="$name.md:${header##* @}"
    text=$(tail -n +2 "$b" | subst)
    [[ $kind == install || $kind == file ]] || samples=$((samples + 1))
    case $kind in
      install|file) ;;
      sh)
        need=${words[1]:-}; need=${need#needs=}
        if [ -n "$need" ] && ! command -v "$need" >/dev/null; then echo "skipped $where: no $need"; continue; fi
        (cd "$dir" && PYTHONPATH="$build/python" bash -euo pipefail -c "$text") >"$dir/out" 2>&1 ||
          { cat "$dir/out"; fail "$where (sh)"; } ;;
      sh-check)
        bash -n <<<"$text" || fail "$where (sh-check: syntax)"
        for f in $(grep -oE '(^|[[:space:]"=])(scripts|bench|fuzz|examples|tests|python|tools)/[A-Za-z0-9_./-]*[A-Za-z0-9_]' <<<"$text" |
                   sed 's/^[[:space:]"=]//' | sort -u); do
          [ -e "$src/$f" ] || fail "$where names $f, which does not exist"
        done ;;
      cpp|cpp-body|c)
        if [ "$kind" = cpp-body ]; then
          { printf '#include <vexa/vexa.h>\n#include <cstdio>\n#include <memory>\n#include <string>\n#include <vector>\nint main()\n{\n'
            echo "$text"; printf '}\n'; } > "$dir/sample.cpp"
        elif [ "$kind" = cpp ]; then echo "$text" > "$dir/sample.cpp"
        else echo "$text" > "$dir/sample.c"; fi
        if [ "$kind" = c ]; then
          compile=(gcc -std=c99 -Wall -Wextra -pedantic -Werror -o "$dir/sample" "$dir/sample.c")
        else
          compile=(g++ -std=c++17 -Wall -Wextra -Werror -o "$dir/sample" "$dir/sample.cpp")
          # A fragment shows results it does not go on to use.
          [ "$kind" = cpp ] || compile+=(-Wno-unused-variable -Wno-unused-but-set-variable)
        fi
        "${compile[@]}" -I"$prefix/include" -L"$prefix/lib" -lvexa -Wl,-rpath,"$prefix/lib" ||
          { fail "$where ($kind: does not compile)"; continue; }
        "$dir/sample" >"$dir/out" 2>&1 || { cat "$dir/out"; fail "$where ($kind: exit status)"; } ;;
      cmake)
        { echo "cmake_minimum_required(VERSION 3.25)"; echo "project(sample LANGUAGES CXX)"
          echo "add_executable(my_host host.cpp)"; echo "$text"; } > "$dir/CMakeLists.txt"
        (cmake -S "$dir" -B "$dir/cm" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null && cmake --build "$dir/cm" >/dev/null &&
          "$dir/cm/my_host" >/dev/null) || fail "$where (cmake)" ;;
      python|pycon)
        [ $have_python = 1 ] || { echo "skipped $where: the Python module is not built"; continue; }
        for s in "${words[@]:1}"; do
          s=${s#sub=}; from=${s%%:*}; to=${s#*:}
          text=${text//"$from"/"$to"}
        done
        if [ "$kind" = python ]; then
          echo "$text" > "$dir/sample.py"
          (cd "$dir" && pyrun sample.py) >"$dir/out" 2>&1 || { cat "$dir/out"; fail "$where (python)"; }
        else
          echo "$text" > "$b.py"
          echo "$where $b.py" >> "$dir/sessions"
        fi ;;
      console)
        command -v vexa >/dev/null || { echo "skipped $where: no vexa command"; continue; }
        echo "$text" > "$dir/session"
        (cd "$dir" && "$python" - <<'PY') || fail "$where (console)"
import re, subprocess, sys
lines = open("session").read().split("\n")
if lines and lines[-1] == "":
    lines.pop()
runs, bad = [], False
for line in lines:
    if line.startswith("$ "):
        runs.append((line[2:], []))
    else:
        runs[-1][1].append(line)
def match(want, got):
    if not want:
        return not got
    if want[0] == "...":
        return any(match(want[1:], got[i:]) for i in range(len(got) + 1))
    return bool(got) and want[0].rstrip() == got[0].rstrip() and match(want[1:], got[1:])
for command, want in runs:
    got = subprocess.run(["bash", "-c", command], stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                         text=True).stdout.rstrip("\n").split("\n")
    if not match(want, got):
        bad = True
        print("$ " + command + "\n--- shown:\n" + "\n".join(want) + "\n--- printed:\n" + "\n".join(got))
sys.exit(1 if bad else 0)
PY
        ;;
      *) fail "$where: unknown sample kind '$kind'" ;;
    esac
  done
  # A page's sessions are one session, as its reader types them.
  if [ -f "$dir/sessions" ]; then
    (cd "$dir" && pyrun - <<'PY') || fail "$name.md (pycon)"
import doctest, sys, warnings
# Warnings shown as the interpreter shows them, without the file and line.
warnings.showwarning = lambda m, c, *a, **k: print(f"{c.__name__}: {m}")
runner = doctest.DocTestRunner(optionflags=doctest.ELLIPSIS | doctest.NORMALIZE_WHITESPACE)
parser, globs = doctest.DocTestParser(), {}
for line in open("sessions"):
    where, path = line.split()
    test = parser.get_doctest(open(path).read(), globs, where, where, 0)
    runner.run(test, clear_globs=False)
    globs = test.globs  # a test runs in a copy of what it is given
sys.exit(1 if runner.failures else 0)
PY
  fi
done
[ $failed = 0 ] && echo "every sample ran ($samples, in ${#pages[@]} pages)"
exit $failed
