#!/bin/sh
# usage: check_example_output.sh SOURCE_TREE VELDAN
# The first example of the command in README.md shows what the command prints, but for the milliseconds: other networks
# find other boxes, and then README.md has to follow.
set -eu
cd "$1"
without_time() {
    sed 's/[0-9.]* ms/N ms/'
}
shown=$(awk '/^\$ veldan detect/ { if (found) exit; found = 1; next } /^[$`]/ { if (found) exit } found' README.md | without_time)
arguments=$(sed -n 's/^\$ veldan //p' README.md | head -n 1)
# The arguments are a list of words on purpose.
# shellcheck disable=SC2086
printed=$("$2" $arguments | without_time)
[ "$shown" = "$printed" ] || { printf 'README.md shows\n%s\nbut the command prints\n%s\n' "$shown" "$printed"; exit 1; }
