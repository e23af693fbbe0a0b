#!/bin/sh
# usage: check_map.sh SOURCE_TREE
# HACKING.md is true where a machine can tell: the files that it names exist, so do the functions that it names behind a
# file of src/, and the map leaves out no unit of src/.
set -eu
export LC_ALL=C
cd "$1"

status=0
complain() {
    echo "HACKING.md: $1"
    status=1
}
list=$(mktemp)
trap 'rm -f "$list"' EXIT
# What stands between backquotes, one a line; a line of its own before what begins anew.
sed -E 's/^(\||[0-9]+\.|$)/`new item`/' HACKING.md | grep -o '`[^`]*`' | tr -d '`' >"$list"
file=
while read -r name; do
    case $name in
        'new item') file= ;;
        *[\ \<\>*]*) ;; # a command or a pattern
        src/*.?pp)
            file=$name
            [ -e "$file" ] || complain "there is no $name"
            ;;
        include/* | src/* | kit/* | service/* | cli/* | tests/* | cmake/* | training/* | bench/* | python/*)
            file=
            [ -e "$name" ] || complain "there is no $name"
            ;;
        *\(\))
            function=${name%()}
            if [ -n "$file" ] && [ -e "$file" ] && ! grep -qE "(^|[^A-Za-z0-9_])$function\(" "$file"; then
                complain "$file has no $name"
            fi
            ;;
    esac
done <"$list"
for unit in src/*/*.cpp; do
    grep -qF "\`$unit\`" HACKING.md || complain "the map does not know $unit"
done
exit $status
