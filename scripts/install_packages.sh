#!/bin/sh
# usage: install_packages.sh build|test
# Installs the Debian packages that building, or building and testing, needs and that are not there yet.
set -eu

build="cmake ninja-build g++ pkg-config libopencv-dev libcli11-dev nlohmann-json3-dev libssl-dev libexif-dev libsqlite3-dev"
test="$build binutils ccache clang-format clang-tidy git imagemagick libbenchmark-dev libfaiss-dev libgmock-dev libgtest-dev libzip-dev python3-pil xauth xvfb"
case ${1:-} in
    build) wanted=$build ;;
    test) wanted=$test ;;
    *) echo "usage: $0 build|test" >&2; exit 2 ;;
esac

missing=""
for package in $wanted; do
    dpkg-query -W -f '${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' || missing="$missing $package"
done
[ -n "$missing" ] || exit 0

echo "installing:$missing"
if [ "$(id -u)" -eq 0 ]; then
    sudo=""
elif command -v sudo >/dev/null; then
    sudo="sudo"
else
    echo "please install these packages as root:$missing" >&2
    exit 1
fi
# The packages are a list of words on purpose.
# shellcheck disable=SC2086
$sudo env DEBIAN_FRONTEND=noninteractive sh -c 'apt-get update -qq && apt-get install -qq -y --no-install-recommends "$@"' sh $missing
