#!/bin/sh
# usage: check_hardening.sh READELF LIBRARY
# No executable stack, no text relocations, relocations read-only after start, the agreed SONAME, no search path of the
# building machine.
set -eu
export LC_ALL=C
readelf=$1 library=$2

fail() { echo "$1"; exit 1; }
segments=$("$readelf" -lW "$library")
dynamic=$("$readelf" -dW "$library")
printf '%s\n' "$segments" | grep -Eq 'GNU_STACK .* RW ' || fail "executable stack"
printf '%s\n' "$segments" | grep -q GNU_RELRO || fail "no read-only relocations"
printf '%s\n' "$dynamic" | grep -q 'BIND_NOW\|Flags:.*NOW' || fail "lazy binding"
printf '%s\n' "$dynamic" | grep -q TEXTREL && fail "text relocations"
printf '%s\n' "$dynamic" | grep -Eq 'RPATH|RUNPATH' && fail "search path inside the library"
printf '%s\n' "$dynamic" | grep -q 'SONAME.*\[libveldan\.so\.0\]' || fail "wrong SONAME"
