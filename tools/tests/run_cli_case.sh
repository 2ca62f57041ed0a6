#!/usr/bin/env bash
# Runs one case of cli_cases.txt: the program with the case's arguments in a
# fresh temporary folder, then checks the exit status and the output.
#   run_cli_case.sh PROGRAM CASES_FILE CASE_NAME SOURCE_DIR
# Case lines:  NAME :: EXIT :: ARGUMENTS :: CHECK :: CHECK ...
#   ARGUMENTS are shell words (quotes, redirections and $SRC work).
#   CHECK is an extended regex that the combined stdout and stderr must
#   match; '!REGEX' must not match; '@FILE=REGEX' must match in FILE.
set -u
VEXA=$1 CASES=$2 NAME=$3 SRC=$4
export SRC
line=$(grep -E "^${NAME}[[:space:]]*::" "$CASES" | head -n 1)
if [ -z "$line" ]; then
  echo "no case named $NAME in $CASES"
  exit 1
fi
fields=()
rest=$line
while [[ $rest == *"::"* ]]; do
  fields+=("${rest%%::*}")
  rest=${rest#*::}
done
fields+=("$rest")
trim() { local s=$1; s=${s#"${s%%[![:space:]]*}"}; s=${s%"${s##*[![:space:]]}"}; printf '%s' "$s"; }
want_exit=$(trim "${fields[1]}")
args=$(trim "${fields[2]}")

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work" || exit 1
# A cross build's program runs under VEXA_EMULATOR (wine, qemu); Windows
# programs end their lines with CR LF, which the checks do not expect.
eval "${VEXA_EMULATOR:-} \"\$VEXA\" $args" > "$work/.out" 2>&1 < /dev/null
got_exit=$?
if [ -n "${VEXA_EMULATOR:-}" ]; then
  tr -d '\r' < "$work/.out" > "$work/.out.lf" && mv "$work/.out.lf" "$work/.out"
fi
fail=0
if [ "$got_exit" != "$want_exit" ]; then
  echo "exit status $got_exit, expected $want_exit"
  fail=1
fi
for ((i = 3; i < ${#fields[@]}; i++)); do
  check=$(trim "${fields[$i]}")
  [ -z "$check" ] && continue
  case $check in
    !*)
      if grep -Eq -- "${check#!}" "$work/.out"; then echo "output matches, but must not: ${check#!}"; fail=1; fi ;;
    @*=*)
      what=${check#@}; file=${what%%=*}; re=${what#*=}
      if [ ! -f "$file" ]; then echo "file $file was not written"; fail=1
      elif ! grep -Eq -- "$re" "$file"; then echo "file $file does not match: $re"; fail=1; fi ;;
    *)
      if ! grep -Eq -- "$check" "$work/.out"; then echo "output does not match: $check"; fail=1; fi ;;
  esac
done
if [ "$fail" != 0 ]; then
  echo "---- vexa $args"
  cat "$work/.out"
fi
exit "$fail"
