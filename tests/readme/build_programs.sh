#!/bin/sh
# usage: build_programs.sh SOURCE_TREE PKG_CONFIG PC_FOLDER CC CXX OUT SANITIZE WRITE_VIDEO
# Builds the first C program of README.md and the examples. The first and examples/detect.c find one face in a portrait,
# where it is; the others recognise who is enrolled, and nobody else.
set -eu
tree=$1 pkg_config=$2 cc=$4 cxx=$5 out=$6 sanitize=$7 write_video=$8
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
for example in detect identify; do
    # shellcheck disable=SC2086
    "$cc" -std=c99 -Wall -Wextra -Werror "$tree/examples/$example.c" -o "$out/$example" $flags $libs
done
# shellcheck disable=SC2086
"$cxx" -std=c++17 -Wall -Wextra -Werror "$tree/examples/identify.cpp" -o "$out/identify_cpp" $flags $libs
# shellcheck disable=SC2086
"$cxx" -std=c++17 -Wall -Wextra -Werror "$tree/examples/track.cpp" -o "$out/track" $flags $libs

photos=$tree/examples/photos
portrait=$photos/astronaut.jpg
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

for example in identify identify_cpp; do
    "$out/$example" "$portrait" "$photos/first-bare.webp" "$portrait" | grep "person of .*astronaut.jpg, similarity" ||
        { echo "$example: the enrolled person is not recognised"; exit 1; }
    "$out/$example" "$portrait" "$photos/first-bare.webp" "$photos/second-bare.webp" | grep "unknown" ||
        { echo "$example: a person who is not enrolled is recognised"; exit 1; }
    if "$out/$example" "$portrait" /no/such/photo 2>/dev/null; then
        echo "$example: a missing photo is not reported"
        exit 1
    fi
done

"$write_video" "$photos" "$out/video.avi"
"$out/track" "$portrait" "$out/video.avi" >"$out/track.txt"
cat "$out/track.txt"
[ "$(grep -c "is the person of the photo" "$out/track.txt")" -eq 1 ] ||
    { echo "track: the enrolled person is not recognised once"; exit 1; }
grep -q "is a stranger" "$out/track.txt" || { echo "track: nobody is a stranger"; exit 1; }
