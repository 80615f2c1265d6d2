#!/usr/bin/env bash
# Compiles the program's Windows resource script (icon and version record) with the MinGW resource
# compiler, so that a broken script shows up before a Windows build does.
# Usage: checkresource.sh <script.rc> <output.res>. Exit code 77: the compiler is not installed.
set -euo pipefail
windres=x86_64-w64-mingw32-windres
command -v "$windres" >/dev/null || {
    echo "Skipped: $windres is not installed (Debian package binutils-mingw-w64-x86-64)"
    exit 77
}
"$windres" --input "$1" --output "$2" --output-format coff
# The icon must be in: a resource file without it is a few hundred bytes.
size=$(stat -c %s "$2")
[ "$size" -gt 10000 ] || {
    echo "FAIL: $2 is only $size bytes; the icon is missing" >&2
    exit 1
}
echo "$2: $size bytes"
