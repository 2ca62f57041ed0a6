#!/usr/bin/env bash
# The command as users get it: installed with `cmake --install` into a
# scratch prefix, and from the Debian package unpacked into a scratch root;
# each copy runs with no library path set, finding the library by its run
# path. Prints what the cases in cli_cases.txt check.
#   install_case.sh BUILD_DIR
set -euo pipefail
build=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
unset LD_LIBRARY_PATH
cmake --install "$build" --prefix "$work/prefix" >/dev/null
echo "installed: $("$work/prefix/bin/vexa" eval "2*x" x=PI | tail -n 1)"
grep '^Cflags' "$work/prefix/lib/pkgconfig/vexa.pc"
(cd "$work" && cpack -G DEB --config "$build/CPackConfig.cmake" -B "$work/pkg" >/dev/null)
deb=$(ls "$work"/pkg/*.deb)
dpkg-deb -f "$deb" Package Depends
dpkg-deb -x "$deb" "$work/root"
echo "packaged: $("$work/root/usr/bin/vexa" eval "2*x" x=PI | tail -n 1)"
[ -f "$work/root/usr/share/doc/vexa/copyright" ] && echo "copyright: $(head -n 1 "$work/root/usr/share/doc/vexa/copyright")"
[ -f "$work/root/usr/include/vexa/vexa.h" ] && echo "headers: usr/include/vexa/vexa.h"
