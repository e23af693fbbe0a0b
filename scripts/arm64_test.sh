#!/bin/bash
# usage: scripts/arm64_test.sh
# Builds for 64-bit ARM and runs under qemu-user what can run there: tests of search, codec, networks' storage, image
# tools, alignment, detection; then the command on photos, whose boxes and templates are compared with those of the
# x86-64 command in build/release. qemu interprets every instruction, so this takes half an hour on two cores; it says
# nothing about the speed of a real board.
set -euo pipefail
cd "$(dirname "$0")/.."

for tool in aarch64-linux-gnu-g++ qemu-aarch64-static; do
    command -v "$tool" >/dev/null || { echo "please install g++-aarch64-linux-gnu and qemu-user-static" >&2; exit 2; }
done
scripts/arm64_sysroot.sh
cmake --preset aarch64 -DCMAKE_COMPILE_WARNING_AS_ERROR=ON >/dev/null
tests="align_test models_test recog_test tool_test"
# Names are words.
# shellcheck disable=SC2086
cmake --build --preset aarch64 --target veldan_command $tests
cmake --preset release >/dev/null
cmake --build --preset release --target veldan_command

ctest --preset aarch64
scripts/compare_builds.py build/release/cli/veldan \
    "$(command -v qemu-aarch64-static) -L build/arm64-sysroot build/aarch64/cli/veldan" examples/photos/*.webp
