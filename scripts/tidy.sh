#!/bin/bash
# usage: scripts/tidy.sh [FILE...]
# clang-tidy over these sources, or over all of them. The compilation database is its own: clang cannot read the
# precompiled headers that GCC makes for the build.
set -uo pipefail
cd "$(dirname "$0")/.." || exit

database=build/tidy
mkdir -p build
cmake --preset release -B "$database" -DCMAKE_DISABLE_PRECOMPILE_HEADERS=ON -DVELDAN_UNITY=ON -DVELDAN_PYTHON=ON \
    -DVELDAN_BENCH=ON >"$database.log" 2>&1 || { cat "$database.log"; exit 1; }

# Sources that are compiled several at a time are also looked at several at a time, by a unit that includes them: most
# of the time goes into the headers. What else is generated is not of interest: headers one by one, networks, snippets.
units() {
    sed -n 's/^  "file": "\(.*\)".*/\1/p' "$database/compile_commands.json" | grep '\.c[px][px]$' |
        grep -v "/$database/.*\.cpp$\|/consumer/" | sort -u
}

# The compiler's default is C++17 already, so the database does not name it; clang-tidy's default is older.
if [ $# -gt 0 ]; then printf '%s\n' "$@"; else units; fi | tr '\n' '\0' |
    xargs -0 -n 1 -P "$(nproc)" clang-tidy -p "$database" --quiet \
        --checks=-bugprone-suspicious-include --extra-arg-before=-std=c++17 \
        2> >(grep -v 'warnings generated\|^Suppressed' >&2)
