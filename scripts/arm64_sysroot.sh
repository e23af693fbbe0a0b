#!/bin/bash
# usage: scripts/arm64_sysroot.sh [FOLDER]
# Unpacks Debian 12's arm64 libraries and headers into a folder that `cmake --preset aarch64` compiles against and qemu
# runs with (build/arm64-sysroot by default). apt works with a configuration and a state of its own, so nothing on this
# machine changes and root is not needed; no package's scripts run, and the folder is no system to boot or to chroot into.
# DEBIAN_MIRROR names another mirror.
set -euo pipefail
cd "$(dirname "$0")/.."

root=${1:-build/arm64-sysroot}
mirror=${DEBIAN_MIRROR:-http://deb.debian.org/debian}
wanted="libc6-dev libstdc++-12-dev libopencv-dev libcli11-dev nlohmann-json3-dev libssl-dev libexif-dev libheif-dev
    libsqlite3-dev libsqlitecpp-dev libfmt-dev libgmock-dev libgtest-dev libpython3-dev"

if [ -e "$root/made" ]; then
    echo "$root is there; remove it to make it anew"
    exit 0
fi
rm -rf "$root"
mkdir -p "$root"
root=$(realpath "$root")
work=$root.apt
mkdir -p "$work/lists/partial" "$work/archives/partial" "$work/parts"
: >"$work/status"
echo "deb [signed-by=/usr/share/keyrings/debian-archive-keyring.gpg] $mirror bookworm main" >"$work/sources.list"
cat >"$work/apt.conf" <<CONF
APT::Architecture "arm64";
APT::Architectures { "arm64"; };
APT::Install-Recommends "false";
APT::Sandbox::User "";
Acquire::Languages "none";
Dir::Etc::parts "$work/parts";
Dir::Etc::sourcelist "$work/sources.list";
Dir::Etc::sourceparts "$work/parts";
Dir::Etc::preferencesparts "$work/parts";
Dir::State "$work";
Dir::State::lists "$work/lists";
Dir::State::status "$work/status";
Dir::Cache "$work";
Dir::Cache::archives "$work/archives";
CONF
export APT_CONFIG=$work/apt.conf

apt-get update -qq
# With an empty status nothing counts as installed: the closure is whole, from libc up.
# shellcheck disable=SC2086
apt-get install -qq -y --download-only $wanted

# As on every Debian of today, before any package can make folders of these.
mkdir -p "$root/usr/bin" "$root/usr/sbin" "$root/usr/lib"
for folder in bin sbin lib; do
    ln -s "usr/$folder" "$root/$folder"
done
for package in "$work"/archives/*.deb; do
    dpkg-deb --fsys-tarfile "$package" | tar -x --keep-directory-symlink -C "$root" \
        --exclude './usr/share/doc/*' --exclude './usr/share/man/*' --exclude './usr/share/locale/*' --exclude './dev/*'
done
# What the packages' scripts would have chosen.
libraries=$root/usr/lib/aarch64-linux-gnu
for chosen in blas/libblas lapack/liblapack; do
    [ -e "$libraries/$chosen.so.3" ] && ln -sf "$chosen.so.3" "$libraries/$(basename "$chosen").so.3"
done
# Links that name a place from the root would lead out of the folder.
find "$root" -type l -lname '/*' | while read -r link; do
    ln -sfn "$(realpath -ms --relative-to="$(dirname "$link")" "$root$(readlink "$link")")" "$link"
done
echo "$(find "$work/archives" -name '*.deb' | wc -l) packages in $root, $(du -sh "$root" | cut -f 1)"
rm -rf "$work"
touch "$root/made"
