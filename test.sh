#!/bin/bash
# usage: ./test.sh [--quick]
# Installs what is missing, builds, and runs all checks. --quick leaves out the sanitizers, clang-tidy and the trainer's tests.
set -uo pipefail
cd "$(dirname "$0")"

quick=false
case ${1:-} in
    "") ;;
    --quick) quick=true ;;
    *) echo "usage: ./test.sh [--quick]" >&2; exit 2 ;;
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
    find include src kit cli python tests bench examples -name '*.cpp' -o -name '*.hpp' -o -name '*.h' -o -name '*.c'
}

check_format() {
    sources | xargs clang-format --dry-run -Werror
}

# Our own units, without the generated ones that hold the networks. The compiler's default is C++17 already, so the
# compilation database does not name it; clang-tidy's default is older.
check_tidy() {
    # shellcheck disable=SC2016
    find src kit cli python bench tests -name '*.cpp' -not -path 'tests/consumer/*' -print0 |
        xargs -0 -n 1 -P "$jobs" clang-tidy -p build/release --quiet --extra-arg-before=-std=c++17 2> >(grep -v 'warnings generated\|^Suppressed' >&2)
}

# With Debian's Python, which has the packages.
check_training() {
    VELDAN_LIBRARY=$PWD/build/release/src/libveldan.so /usr/bin/python3 -m pytest -q -p no:cacheprovider training/tests
}

build() {
    local preset=$1
    shift
    local log=build/configure-$preset.log
    mkdir -p build
    cmake --preset "$preset" -DVELDAN_PYTHON="$([ "$preset" = release ] && echo ON || echo OFF)" -DCMAKE_COMPILE_WARNING_AS_ERROR=ON >"$log" 2>&1 || {
        cat "$log"
        return 1
    }
    cmake --build --preset "$preset" --parallel "$jobs" "$@"
}

step "packages" scripts/install_packages.sh "$($quick && echo quick || echo test)" || finish
step "format" check_format
step "build" build release || finish
step "tests" ctest --preset release --parallel "$jobs"
if ! $quick; then
    step "the trainer's tests" check_training
    step "flake8" flake8
    step "clang-tidy" check_tidy
    step "build with address and undefined sanitizers" build asan &&
        step "tests with address and undefined sanitizers" ctest --preset asan --parallel "$jobs"
    step "build with thread sanitizer" build tsan --target threads_test &&
        step "tests with thread sanitizer" ctest --preset tsan -L threads
fi
finish
