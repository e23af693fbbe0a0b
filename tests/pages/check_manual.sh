#!/bin/bash
# usage: check_manual.sh PAGES COMMAND
# There is a page for each command that the help names, none has an error for those who render it, and a page holds every
# option of its command's help.
set -euo pipefail
export LC_ALL=C.UTF-8
pages=$1/man
command=$2

status=0
commands=$("$command" --help | sed -n '/^Subcommands:/,/^$/s/^  \([a-z]*\) .*/\1/p')
[ "$(wc -w <<<"$commands")" -gt 8 ] || { echo "hardly any command in the help"; exit 1; }
[ "$(find "$pages" -name '*.1' | wc -l)" -eq $(($(wc -w <<<"$commands") + 1)) ] || { echo "pages are too many or too few"; status=1; }
for page in "$pages"/*.1; do
    [ "$(date -d "$(sed -n 's/^\.TH [^"]*"\([^"]*\)".*/\1/p' "$page")" +%Y)" -ge 2020 ] || { echo "$page: no date"; status=1; }
    if command -v mandoc >/dev/null; then
        mandoc -T lint -W warning "$page" || status=1
    fi
    if command -v man >/dev/null; then
        complaints=$(man --warnings -l "$page" 2>&1 >/dev/null)
        [ -z "$complaints" ] || { echo "$complaints"; status=1; }
    fi
done
for name in $commands; do
    for option in $("$command" "$name" --help | sed -n 's/^  \(-[^ ={]*\).*/\1/p' | tr ',' '\n'); do
        grep -qF -- "\\fB${option//-/\\-}\\fR" "$pages/veldan-$name.1" || { echo "veldan-$name.1 lacks $option"; status=1; }
    done
done
exit $status
