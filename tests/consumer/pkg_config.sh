#!/bin/sh
# usage: pkg_config.sh PKG_CONFIG STAGE PC_FOLDER CC CXX OUT SANITIZE VERSION
# Builds the consumers with nothing but what pkg-config says, and runs them.
set -eu
pkg_config=$1 stage=$2 cc=$4 cxx=$5 out=$6 sanitize=$7 version=$8
PKG_CONFIG_PATH=$3
export PKG_CONFIG_PATH

found=$("$pkg_config" --modversion veldan)
[ "$found" = "$version" ] || { echo "pkg-config says version $found"; exit 1; }
case $("$pkg_config" --variable=includedir veldan) in
    "$stage"/*) ;;
    *) echo "pkg-config points outside of the installed tree"; exit 1 ;;
esac

rm -rf "$out"
mkdir -p "$out"
sources=$(dirname "$0")/src
flags="$("$pkg_config" --cflags veldan) ${sanitize:+-fsanitize=$sanitize}"
libs="$("$pkg_config" --libs veldan) -Wl,-rpath,$("$pkg_config" --variable=libdir veldan)"
# The flags are lists of words on purpose.
# shellcheck disable=SC2086
"$cc" -std=c99 -Wall -Wextra -Werror "$sources/consumer.c" -o "$out/consumer_c" $flags $libs
# shellcheck disable=SC2086
"$cxx" -std=c++17 -Wall -Wextra -Werror "$sources/consumer.cpp" -o "$out/consumer_cpp" $flags $libs
"$out/consumer_c"
"$out/consumer_cpp"
