#!/bin/bash
# usage: ./test.sh [--all|--packages]
# Installs what is missing, builds the library, the command, the Python package and the tests, and runs the tests. --all
# adds what takes longer: the measuring programs, Python's long tests, the page of the service in a browser, the trainer,
# format, flake8, clang-tidy and the sanitizers. --packages makes the Debian packages, which are compiled in another way,
# and tries them in a fresh Debian.
set -uo pipefail
cd "$(dirname "$0")" || exit

all=false
packages=false
case ${1:-} in
    "") ;;
    --all) all=true ;;
    --packages) packages=true ;;
    *) echo "usage: ./test.sh [--all|--packages]" >&2; exit 2 ;;
esac

jobs=$(nproc)
failed=()
SECONDS=0

# Runs one named step; a failure is kept for the last line.
step() {
    local name=$1 start=$SECONDS
    shift
    echo "==> $name"
    if "$@"; then
        echo "==> $name: ok, $((SECONDS - start)) s"
    else
        echo "==> $name: FAILED"
        failed+=("$name")
        return 1
    fi
}

finish() {
    local time
    time=$(printf '%d:%02d' $((SECONDS / 60)) $((SECONDS % 60)))
    if [ ${#failed[@]} -eq 0 ]; then
        echo "test.sh: all checks passed in $time"
        exit 0
    fi
    local list
    list=$(printf ', %s' "${failed[@]}")
    echo "test.sh: FAILED: ${list:2} (after $time)"
    exit 1
}

sources() {
    find include src kit service cli postgresql python tests bench examples -name '*.cpp' -o -name '*.hpp' -o -name '*.h' -o -name '*.c'
}

check_format() {
    sources | xargs clang-format --dry-run -Werror
}

# With Debian's Python, which has the packages.
check_training() {
    VELDAN_LIBRARY=$PWD/build/release/src/libveldan.so /usr/bin/python3 -m pytest -q -p no:cacheprovider training/tests
}

build_packages() {
    build package && lintian --fail-on error,warning --allow-root build/package/packages/*.deb
}

# build PRESET [-DOPTION=VALUE...] [-- ARGUMENTS OF THE BUILD...]
build() {
    local preset=$1 options=()
    shift
    while [ $# -gt 0 ] && [ "$1" != -- ]; do
        options+=("$1")
        shift
    done
    local log=build/configure-$preset.log
    mkdir -p build
    cmake --preset "$preset" -DCMAKE_COMPILE_WARNING_AS_ERROR=ON "${options[@]}" >"$log" 2>&1 || {
        cat "$log"
        return 1
    }
    cmake --build --preset "$preset" --parallel "$jobs" "${@:2}"
}

if $packages; then
    step "packages" scripts/install_packages.sh packages || finish
    step "Debian packages" build_packages && step "Debian packages in a fresh Debian" scripts/package_test.sh
    finish
fi

if ! $all; then
    step "packages" scripts/install_packages.sh test || finish
    step "build" build release -DVELDAN_BENCH=OFF -DVELDAN_PYTHON=ON || finish
    step "tests" ctest --preset release --parallel "$jobs"
    finish
fi

step "packages" scripts/install_packages.sh all || finish
step "format" check_format
step "build" build release -DVELDAN_BENCH=ON -DVELDAN_PYTHON=ON || finish
step "tests" ctest --preset release --parallel "$jobs"
step "the Python package's long tests" ctest --preset release -C slow -L python-slow
step "the service's long tests" ctest --preset release -C slow -L service-slow
step "the page of the service in Chromium" ctest --preset release -C slow -L browser
step "the PostgreSQL extension on servers" ctest --preset release -C slow -L postgresql-slow
step "the trainer's tests" check_training
step "flake8" flake8
step "clang-tidy" scripts/tidy.sh
step "build with address and undefined sanitizers" build asan -DVELDAN_BENCH=ON &&
    step "tests with address and undefined sanitizers" ctest --preset asan --parallel "$jobs"
step "build with thread sanitizer" build tsan -DVELDAN_BENCH=OFF -- --target threads_test &&
    step "tests with thread sanitizer" ctest --preset tsan -L threads
finish
