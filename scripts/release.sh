#!/bin/bash
# usage: scripts/release.sh [--key ID] [--quick]
# Makes a release of the committed tree: runs all checks, builds the packages, tries them in a fresh Debian, and leaves in
# build/release-VERSION the packages, the source, the list of what is linked (SPDX) and SHA256SUMS. --key signs that list
# with gpg. --quick leaves out the checks that ./test.sh --all has done on this commit already.
set -euo pipefail
cd "$(dirname "$0")/.."

key=
quick=false
while [ $# -gt 0 ]; do
    case $1 in
        --key) key=${2:?--key takes the id of a gpg key}; shift ;;
        --quick) quick=true ;;
        *) echo "usage: $0 [--key ID] [--quick]" >&2; exit 2 ;;
    esac
    shift
done
fail() {
    echo "release.sh: $1" >&2
    exit 1
}

version=$(sed -n 's/^project(veldan VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt) # the one place where it stands
[ -z "$(git status --porcelain)" ] || fail "the tree has changes that are not committed"
grep -q "^## \[$version\]" CHANGELOG.md || fail "CHANGELOG.md has no section [$version]"
[ -z "$key" ] || gpg --list-secret-keys "$key" >/dev/null || fail "there is no secret key $key"
SOURCE_DATE_EPOCH=$(git log -1 --format=%ct)
export SOURCE_DATE_EPOCH

$quick || ./test.sh --all
$quick || scripts/reproducible.sh

rm -rf build/package
cmake --preset package
cmake --build --preset package --parallel "$(nproc)"
packages=build/package/packages
lintian --fail-on error,warning --allow-root "$packages"/*.deb
$quick || scripts/package_test.sh "$packages"

out=build/release-$version
rm -rf "$out"
mkdir -p "$out"
cp "$packages"/*.deb "$out"
git archive --prefix="veldan-$version/" HEAD | gzip -9n >"$out/veldan-$version.tar.gz"
scripts/sbom.py "$out"/*.deb >"$out/veldan-$version.spdx.json"
(cd "$out" && sha256sum -- * >SHA256SUMS)
if [ -n "$key" ]; then
    gpg --local-user "$key" --armor --detach-sign "$out/SHA256SUMS"
fi
cat "$out/SHA256SUMS"
