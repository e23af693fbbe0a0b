#!/bin/sh
# Fuzzes one target: run.sh TARGET EXECUTIONS|SECONDSs [options of libFuzzer]
#
#   tests/fuzz/run.sh base64 10000000      ten million executions
#   tests/fuzz/run.sh frames 3600s         an hour
#
# Builds what is needed with the preset "fuzz". New inputs, and what was found, go to build/fuzz/found/TARGET.
set -eu
cd "$(dirname "$0")/../.."
if [ $# -lt 2 ]; then
    sed -n '2,7s/^# \{0,1\}//p' "$0" >&2
    exit 2
fi
target=$1
amount=$2
shift 2

case $target in
gallery_exchange | gallery_file | orientation | picture_size) program=veldan_fuzz_kit ;;
service_request) program=veldan_fuzz_service ;;
*) program=veldan_fuzz ;;
esac
if [ -z "${VELDAN_FUZZER:-}" ]; then
    cmake --preset fuzz >&2
    cmake --build --preset fuzz --target $program >&2
    VELDAN_FUZZER=build/fuzz/tests/fuzz/$program
fi

case $amount in
*s) limit=-max_total_time=${amount%s} ;;
*) limit=-runs=$amount ;;
esac
case $target in
image_decode | picture_size) options="-max_len=65536 -timeout=20 -close_fd_mask=2" ;;
frames) options="-max_len=64 -timeout=60" ;;
# OpenCV's importer leaks when it gives up on a file.
network_loading) options="-max_len=4096 -timeout=60 -close_fd_mask=2 -detect_leaks=0" ;;
bmp_to_raw | gallery_exchange | gallery_file | orientation | service_request) options="-max_len=4096" ;;
template_text) options="-max_len=1100" ;;
*) options="-max_len=640" ;;
esac

found=build/fuzz/found/$target
mkdir -p "$found"
# Memory that a file announces and nobody has is an exception, as outside of the fuzzer.
export ASAN_OPTIONS="allocator_may_return_null=1${ASAN_OPTIONS:+:$ASAN_OPTIONS}"
# shellcheck disable=SC2086
exec "$VELDAN_FUZZER" "--target=$target" "$limit" $options -artifact_prefix="$found/" -print_final_stats=1 "$@" \
    "$found" "tests/fuzz/corpus/$target"
