#!/bin/sh
# usage: check_example_output.sh SOURCE_TREE VELDAN
# The first examples of detect and inspect in README.md show what the command prints, but for the milliseconds: other
# networks find and say other things, and then README.md has to follow.
set -eu
veldan=$2
readme=$1/README.md
photos=$1/examples/photos
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
mkdir "$folder/examples"
ln -s "$(realpath "$photos")" "$folder/examples/photos"
cd "$folder" # pictures that an example draws go here
without_time() {
    sed 's/[0-9.]* ms/N ms/'
}
for command in detect inspect; do
    arguments=$(sed -n "s|^\$ veldan \($command examples/photos/.*\)|\1|p" "$readme" | head -n 1)
    shown=$(awk -v example="\$ veldan $arguments" '
        $0 == example { found = 1; next } found && /^[$`]/ { exit } found' "$readme" | without_time)
    [ -n "$shown" ] || { echo "README.md has no example of $command"; exit 1; }
    # The arguments are a list of words on purpose.
    # shellcheck disable=SC2086
    printed=$("$veldan" $arguments | without_time)
    [ "$shown" = "$printed" ] || { printf 'README.md shows\n%s\nbut the command prints\n%s\n' "$shown" "$printed"; exit 1; }
done
