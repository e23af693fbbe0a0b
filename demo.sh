#!/bin/bash
# usage: ./demo.sh
# Installs what is missing, builds the library and the veldan command, finds the faces in the bundled photos, judges those
# of one photo, and compares a bare face with the same one behind a mask, and with another one.
set -euo pipefail
cd "$(dirname "$0")"

if [ $# -ne 0 ]; then
    echo "usage: ./demo.sh" >&2
    exit 2
fi

# A folder of its own, so that a developer's build keeps its settings.
build=build/demo
drawn=$build/drawn

echo "==> packages"
scripts/install_packages.sh build
echo "==> build (the first time takes a minute or two)"
mkdir -p build
cmake --preset release -B "$build" -DVELDAN_DEVELOPER=OFF >"$build".log 2>&1 || { cat "$build".log; exit 1; }
cmake --build "$build" --parallel "$(nproc)"

echo "==> detect"
mkdir -p "$drawn"
"$build"/cli/veldan detect --draw "$drawn" examples/photos/*.jpg examples/photos/*.webp
echo "==> inspect"
"$build"/cli/veldan inspect --draw "$drawn"/rows-judged.png examples/photos/rows.webp
echo "==> match"
"$build"/cli/veldan match --draw "$drawn"/match.png examples/photos/first-bare.webp examples/photos/first-mask.webp
"$build"/cli/veldan match examples/photos/first-bare.webp examples/photos/second-mask.webp

echo
echo "The photos with the faces drawn in are in $PWD/$drawn/"
echo "Look at $PWD/$drawn/rows-judged.png first."
echo "Try your own:  $build/cli/veldan inspect PHOTO --draw judged.jpg"
