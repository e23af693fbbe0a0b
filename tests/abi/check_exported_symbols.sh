#!/bin/sh
# usage: check_exported_symbols.sh NM LIBRARY LIST
# The library exports exactly the symbols of the list: one a line, C++ symbols with their arguments, sorted by bytes.
# After a wanted change: nm -DC --defined-only libveldan.so | sed -n 's/^[0-9a-f]* [^A] \(.*\)@@VELDAN_0$/\1/p' | LC_ALL=C sort -u
set -eu
export LC_ALL=C
nm=$1 library=$2 list=$3

exported=$("$nm" -DC --defined-only "$library" | sed -n 's/^[0-9a-f]* [^A] //p')
unversioned=$(printf '%s\n' "$exported" | grep -v '@@VELDAN_0$' || true)
if [ -n "$unversioned" ]; then
    printf 'exported without the version VELDAN_0:\n%s\n' "$unversioned"
    exit 1
fi
sort -uc "$list" || { echo "$list is not sorted"; exit 1; }
printf '%s\n' "$exported" | sed 's/@@VELDAN_0$//' | sort -u | diff -u "$list" - || {
    echo "- should be exported and is not; + is exported and should not be"
    exit 1
}
