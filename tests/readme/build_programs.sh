#!/bin/sh
# usage: build_programs.sh SOURCE_TREE PKG_CONFIG PC_FOLDER CC OUT SANITIZE
# Builds the first C program of README.md and examples/detect.c, and runs both on a portrait: one face, where it is.
set -eu
tree=$1 pkg_config=$2 cc=$4 out=$5 sanitize=$6
PKG_CONFIG_PATH=$3
export PKG_CONFIG_PATH

rm -rf "$out"
mkdir -p "$out"
awk '/^```c$/ { if (!done) inside = 1; next } /^```$/ { if (inside) done = 1; inside = 0 } inside' \
    "$tree/README.md" >"$out/readme.c"
grep -q zzDetectFaceThread "$out/readme.c" || { echo "README.md has no C program that detects"; exit 1; }
flags="$("$pkg_config" --cflags veldan) ${sanitize:+-fsanitize=$sanitize}"
libs="$("$pkg_config" --libs veldan) -Wl,-rpath,$("$pkg_config" --variable=libdir veldan)"
# The flags are lists of words on purpose.
# shellcheck disable=SC2086
"$cc" -std=c99 -Wall -Wextra -Werror "$out/readme.c" -o "$out/readme" $flags $libs
# shellcheck disable=SC2086
"$cc" -std=c99 -Wall -Wextra -Werror "$tree/examples/detect.c" -o "$out/detect" $flags $libs

portrait=$tree/examples/photos/astronaut.jpg
"$out/readme" "$portrait" >"$out/readme.txt"
"$out/detect" "$portrait" >"$out/detect.txt"
for file in readme detect; do
    cat "$out/$file.txt"
    [ "$(wc -l <"$out/$file.txt")" -eq 1 ] || { echo "$file: one face expected"; exit 1; }
    # The first four numbers are the box; the middle of the face is at (225, 125).
    tr -c '0-9\n' ' ' <"$out/$file.txt" | awk '{
        if ($1 < 225 && 225 < $1 + $3 && $2 < 125 && 125 < $2 + $4 && $3 < 150 && $4 < 180) exit 0
        print "the box is not around the face"; exit 1 }'
done
if "$out/detect" /no/such/photo 2>/dev/null; then
    echo "detect: a missing photo is not reported"
    exit 1
fi
