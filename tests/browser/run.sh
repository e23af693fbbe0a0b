#!/bin/sh
# usage: run.sh COMMAND FOLDER
# Tests the page that "COMMAND serve" shows, in Debian's Chromium; FOLDER gets what that needs, and screenshots.
set -eu
sources=$(cd "$(dirname "$0")" && pwd)
command=$1
mkdir -p "$2/screenshots"
work=$(cd "$2" && pwd)

for program in chromium node npm; do
    command -v $program >/dev/null || { echo "$program is missing: scripts/install_packages.sh all"; exit 1; }
done

# The packages go beside the build, never into the sources, and are fetched again only when the list of them changes.
if ! cmp -s "$sources/package-lock.json" "$work/package-lock.json" || [ ! -d "$work/node_modules/playwright-core" ]; then
    cp "$sources/package.json" "$work/"
    (cd "$work" && cp "$sources/package-lock.json" . && PLAYWRIGHT_SKIP_BROWSER_DOWNLOAD=1 npm ci --no-audit --no-fund --ignore-scripts) || {
        rm -f "$work/package-lock.json"
        exit 1
    }
fi
/usr/bin/python3 "$sources/make_camera.py" "$sources/../../examples/photos" "$work"
VELDAN=$command WORK=$work exec node --test --test-concurrency=1 "$sources/page_test.mjs"
