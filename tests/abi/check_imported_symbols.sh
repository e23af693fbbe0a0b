#!/bin/sh
# usage: check_imported_symbols.sh NM LIBRARY
# The library never prints, aborts, exits, forks or starts threads: what it does not import, it cannot do.
set -eu
export LC_ALL=C
nm=$1 library=$2

imported=$("$nm" -D --undefined-only "$library" | sed 's/^ *[Uw] //; s/@.*//')
forbidden='
v?printf v?fprintf v?dprintf puts fputs fputc putc putchar perror psignal
__v?printf_chk __v?fprintf_chk __v?dprintf_chk _IO_putc
stdout stderr stdin write
abort exit _exit _Exit quick_exit __assert_fail __assert_perror_fail __assert raise kill
fork vfork system popen execv[pe]* execl[pe]* posix_spawnp?
pthread_create thrd_create
err errx warn warnx error syslog
_ZSt4cout _ZSt4cerr _ZSt4clog _ZSt3cin _ZSt5wcout _ZSt5wcerr _ZSt5wclog _ZNSt8ios_base4InitC1Ev
_ZSt9terminatev _ZNSt6thread.*
'
status=0
for name in $forbidden; do
    if found=$(printf '%s\n' "$imported" | grep -Ex "$name"); then
        echo "the library imports $found"
        status=1
    fi
done
# A check that found no symbols at all would pass for the wrong reason.
printf '%s\n' "$imported" | grep -qx memcpy || { echo "no import of memcpy: is $library the library?"; status=1; }
exit $status
