#!/bin/bash
# usage: scripts/package_test.sh [FOLDER]
# Installs the packages of a folder (build/package/packages by default) into a Debian 12 that has nothing, uses each of
# them, and purges them again. As root, for chroot; where that or debootstrap is missing, it says so and is content.
set -euo pipefail
cd "$(dirname "$0")/.."

skip() {
    echo "package_test.sh: skipped: $1"
    exit 0
}

if [ "${1:-}" != --inside ]; then
    packages=${1:-build/package/packages}
    ls "$packages"/libveldan0_*.deb >/dev/null || exit 1
    [ "$(id -u)" -eq 0 ] || skip "chroot is for root"
    command -v debootstrap >/dev/null || skip "there is no debootstrap"
    chroot / true 2>/dev/null || skip "chroot is forbidden here"
    unshare --mount true 2>/dev/null || skip "mounting is forbidden here"
    FRESH_FILES=$packages exec scripts/fresh_debian.sh scripts/package_test.sh --inside
fi

# From here on within the new root, where the packages lie in /files.
export DEBIAN_FRONTEND=noninteractive
photo=examples/photos/second-mask.webp
has() { ls /files/"$1"_*.deb >/dev/null 2>&1; }
install() {
    local files=()
    for package; do files+=(/files/"$package"_*.deb); done
    apt-get install -qq -y --no-install-recommends "${files[@]}" >/tmp/apt.log 2>&1 || { cat /tmp/apt.log; exit 1; }
}
say() { echo "==> $*"; }

apt-get update -qq
# Policy forbids that packages start services in a chroot; what starts below is started by hand.
printf '#!/bin/sh\nexit 101\n' >/usr/sbin/policy-rc.d
chmod +x /usr/sbin/policy-rc.d
before=$(dpkg-query -W -f '${Package}\n' | wc -l)

say "install the command"
install libveldan0 veldan
echo "$(($(dpkg-query -W -f '${Package}\n' | wc -l) - before)) packages more, $(du -shx / --exclude=/files --exclude=/veldan | cut -f 1) in all"
ldd /usr/bin/veldan | grep veldan
veldan version
say "veldan detect"
veldan detect "$photo" | tee /tmp/detect.txt
grep -q ': 1 face ' /tmp/detect.txt
veldan match --threshold 0.7 examples/photos/first-bare.webp examples/photos/first-mask.webp | grep "^similarity"
zcat /usr/share/man/man1/veldan-enroll.1.gz | grep -q gallery
bash -c 'source /usr/share/bash-completion/completions/veldan; COMP_WORDS=(veldan det) COMP_CWORD=1; _veldan; [ "${COMPREPLY[*]}" = detect ]'

if veldan --help | grep -q '^  serve '; then
    say "the service starts and stops"
    veldan serve --gallery /tmp/people.db --listen 127.0.0.1:18080 2>/tmp/serve.log &
    service=$!
    answer=
    for _ in $(seq 50); do
        sleep 0.2
        answer=$({ exec 3<>/dev/tcp/127.0.0.1/18080 && printf 'GET /openapi.json HTTP/1.0\r\n\r\n' >&3 && head -n 1 <&3; } 2>/dev/null) || continue
        break
    done
    echo "$answer"
    [[ $answer == *" 200 "* ]] || { cat /tmp/serve.log; exit 1; }
    kill -TERM $service
    wait $service
fi

if has python3-veldan; then
    say "import veldan"
    install python3-veldan
    python3 - "$photo" <<'PYTHON'
import sys
import veldan
print(veldan.__file__, veldan.__version__)
with veldan.Engine() as engine:
    faces = engine.detect(veldan.read_image(sys.argv[1]))
    print(len(faces), "face, masked:", faces[0].masked)
    assert len(faces) == 1
PYTHON
fi

say "C and C++ programs"
apt-get install -qq -y --no-install-recommends gcc g++ libc6-dev pkg-config cmake make >/dev/null 2>&1
install libveldan-dev
mkdir -p /tmp/programs
# Split into words on purpose.
# shellcheck disable=SC2046
gcc -std=c99 -Wall -Werror examples/detect.c -o /tmp/programs/detect $(pkg-config --cflags --libs veldan)
# shellcheck disable=SC2046
g++ -std=c++17 -Wall -Werror examples/identify.cpp -o /tmp/programs/identify $(pkg-config --cflags --libs veldan)
/tmp/programs/detect "$photo"
/tmp/programs/identify examples/photos/first-bare.webp examples/photos/first-mask.webp
cmake -S tests/consumer/find_package -B /tmp/programs/cmake -DVELDAN_EXPECTED_VERSION="$(pkg-config --modversion veldan)" >/dev/null
cmake --build /tmp/programs/cmake >/dev/null
(cd /tmp/programs/cmake && ctest 2>&1 | tail -3)

if has postgresql-15-veldan; then
    say "the extension of PostgreSQL"
    install postgresql-15-veldan
    pg_ctlcluster 15 main start
    su postgres -c "cd / && psql -Atc 'CREATE EXTENSION veldan' -c '\\dx veldan'"
    pg_ctlcluster 15 main stop
fi

say "purge"
packages=$(dpkg-query -W -f '${Package}\n' | grep veldan)
# Names are words.
# shellcheck disable=SC2086
apt-get purge -qq -y $packages >/dev/null 2>&1
left=$(find / -xdev \( -path /files -o -path /veldan -o -path /proc -o -path /tmp -o -path /var/lib/postgresql \) -prune -o -iname '*veldan*' -print)
[ -z "$left" ] || { echo "left behind:"; echo "$left"; exit 1; }
if dpkg -l | grep veldan; then exit 1; fi
echo "nothing left of: $(echo $packages)"
