#!/bin/sh
# usage: install_packages.sh build|python|test|all|packages
# Installs the Debian packages that are not there yet: to build; to build and use the Python package; to run ./test.sh; to
# run ./test.sh --all; to make and try our own packages.
set -eu

build="cmake ninja-build g++ pkg-config libopencv-dev libcli11-dev libcpp-httplib-dev nlohmann-json3-dev libssl-dev libexif-dev libheif-dev libsqlite3-dev libsqlitecpp-dev libfmt-dev libpq-dev"
python="$build pybind11-dev python3-dev python3-distributed python3-numpy python3-opencv python3-pip python3-setuptools python3-venv python3-wheel"
test="$python binutils git imagemagick libgmock-dev libgtest-dev python3-pil python3-pytest xauth xvfb"
all="$test ccache chromium clang-format clang-tidy flake8 fonts-dejavu-core libbenchmark-dev libfaiss-dev libzip-dev nodejs npm postgresql-15 postgresql-server-dev-15 python3-jsonschema python3-protobuf python3-torch"
# Manual pages, completions.
all="$all fish man-db mandoc zsh"
packages="$python debootstrap lintian postgresql-server-dev-15"
case ${1:-} in
    build) wanted=$build ;;
    python) wanted=$python ;;
    test) wanted=$test ;;
    all) wanted=$all ;;
    packages) wanted=$packages ;;
    *) echo "usage: $0 build|python|test|all|packages" >&2; exit 2 ;;
esac

missing=""
for package in $wanted; do
    # Node.js from elsewhere brings an npm of its own, which Debian's cannot stand beside.
    [ "$package" != npm ] || ! command -v npm >/dev/null || continue
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
