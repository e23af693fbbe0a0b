#!/bin/bash
# usage: scripts/fresh_debian.sh COMMAND [ARGUMENT...]
# Runs a command of this tree, such as ./demo.sh or ./test.sh, on a copy of the committed tree in a Debian 12 that has
# nothing but its base packages, and tells how long it took. As root, for chroot. DEBIAN_MIRROR names another mirror;
# FRESH_DEBIAN a folder for the base system, which is made there once and copied for each run; FRESH_FILES a folder that the
# command finds as /files.
set -euo pipefail
cd "$(dirname "$0")/.."

if [ $# -eq 0 ] || [ "$(id -u)" -ne 0 ]; then
    echo "usage, as root: $0 COMMAND [ARGUMENT...]" >&2
    exit 2
fi
mirror=${DEBIAN_MIRROR:-http://deb.debian.org/debian}
base=${FRESH_DEBIAN:-/var/tmp/fresh-debian}

if [ ! -e "$base/made" ]; then
    rm -rf "$base"
    debootstrap --variant=minbase bookworm "$base" "$mirror"
    touch "$base/made"
fi
root=$(mktemp -d /var/tmp/fresh-run-XXXXXX)
trap 'umount "$root/proc" && rm -rf --one-file-system "$root"' EXIT
cp -a "$base/." "$root"
cp -L /etc/resolv.conf "$root/etc/resolv.conf"
mount -t proc proc "$root/proc" # of devices, those that the base system has are enough
mkdir "$root/veldan"
git archive HEAD | tar -x -C "$root/veldan"
if [ -n "${FRESH_FILES:-}" ]; then
    cp -r "$FRESH_FILES" "$root/files"
fi

start=$SECONDS
status=0
env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LC_ALL=C.UTF-8 chroot "$root" \
    sh -c 'cd /veldan && exec "$@"' sh "$@" || status=$?
took=$((SECONDS - start))
printf '%s in a fresh Debian 12: exit code %d after %d:%02d, %s processors, load %s\n' "$*" "$status" \
    $((took / 60)) $((took % 60)) "$(nproc)" "$(cut -d ' ' -f 1 /proc/loadavg)"
exit "$status"
