#!/bin/sh
# usage: check_example_output.sh SOURCE_TREE VELDAN
# The first examples of detect in README.md and of inspect in docs/inspect.md show what the command prints, but for the
# milliseconds: other networks find and say other things, and then the pages have to follow.
set -eu
tree=$1
veldan=$2
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
mkdir "$folder/examples"
ln -s "$(realpath "$tree/examples/photos")" "$folder/examples/photos"
cd "$folder" # pictures that an example draws go here
without_time() {
    sed 's/[0-9.]* ms/N ms/'
}
check() { # COMMAND PAGE
    arguments=$(sed -n "s|^\$ veldan \($1 examples/photos/.*\)|\1|p" "$tree/$2" | head -n 1)
    shown=$(awk -v example="\$ veldan $arguments" '
        $0 == example { found = 1; next } found && /^[$`]/ { exit } found' "$tree/$2" | without_time)
    [ -n "$shown" ] || { echo "$2 has no example of $1"; exit 1; }
    # The arguments are a list of words on purpose.
    # shellcheck disable=SC2086
    printed=$("$veldan" $arguments | without_time)
    [ "$shown" = "$printed" ] || { printf '%s shows\n%s\nbut the command prints\n%s\n' "$2" "$shown" "$printed"; exit 1; }
}
check detect README.md
check inspect docs/inspect.md
