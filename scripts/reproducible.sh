#!/bin/bash
# usage: scripts/reproducible.sh [--library]
# Builds the library and the command, or the library alone, twice, without ccache, in folders of different names and on different days as far as
# they can tell, and compares what comes out byte by byte. Takes as long as two builds.
set -euo pipefail
cd "$(dirname "$0")/.."

components="runtime command"
targets="veldan veldan_command veldan_pages"
case ${1:-} in
    "") ;;
    --library) components=runtime targets=veldan ;;
    *) echo "usage: $0 [--library]" >&2; exit 2 ;;
esac

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
export CCACHE_DISABLE=1
SOURCE_DATE_EPOCH=$(git log -1 --format=%ct)
export SOURCE_DATE_EPOCH

status=0
for name in one another/folder/of/a/longer/name; do
    mkdir -p "$folder/$name"
    git archive HEAD | tar -x -C "$folder/$name"
    (
        cd "$folder/$name"
        cmake --preset package -DVELDAN_PYTHON=OFF -DVELDAN_POSTGRESQL=OFF >configure.log 2>&1 || { cat configure.log; exit 1; }
        # Names are words.
        # shellcheck disable=SC2086
        cmake --build build/package --parallel "$(nproc)" --target $targets >build.log 2>&1 ||
            { tail -40 build.log; exit 1; }
    )
    for component in $components; do
        DESTDIR=$folder/$name.installed cmake --install "$folder/$name/build/package" --component $component --strip >/dev/null
    done
    (cd "$folder/$name.installed" && find . -type f -print0 | sort -z | xargs -0 sha256sum) >"$folder/sums.${name%%/*}"
    grep -E 'libveldan|bin/veldan' "$folder/sums.${name%%/*}"
done
cmp "$folder/sums.one" "$folder/sums.another" || status=1
# Not even the same folder may be named in it.
if grep -rlF "$folder" "$folder/one.installed"; then status=1; fi
[ "$status" -ne 0 ] || echo "$(wc -l <"$folder/sums.one") files of two builds are the same, byte for byte"
exit "$status"
