#!/bin/sh
# usage: check_arrows.sh SOURCE_TREE
# Who may include what: cli -> service -> kit, python -> kit -> include/veldan, and src -> include/veldan. Within kit a room knows those before
# it, within src the instance knows the engines, and these what they share.
set -eu
export LC_ALL=C
cd "$1"

status=0
list=$(mktemp)
trap 'rm -f "$list"' EXIT
# refuse WHAT PATTERN FOLDER...: no source there may include what the pattern matches.
refuse() {
    what=$1
    pattern=$2
    shift 2
    for folder; do
        [ -d "$folder" ] || { echo "there is no $folder"; exit 1; }
    done
    if grep -rnE --include='*.h' --include='*.hpp' --include='*.cpp' "^ *# *include *[<\"]($pattern)" "$@"; then
        echo "^ $what"
        status=1
    fi
}
# own FOLDER ROOT...: what a source there includes in quotes lies beside it or below one of these folders.
own() {
    folder=$1
    shift
    grep -roE '^#include "[^"]*"' "$folder" >"$list" || true
    while IFS=: read -r file include; do
        name=${include#*\"}
        name=${name%\"}
        found=no
        for root in "$(dirname "$file")" "$@"; do
            if [ -e "$root/$name" ]; then found=yes; fi
        done
        case $found$name in
            yes* | *.inc) ;; # .inc: made by the build
            *) echo "$file: \"$name\" is out of its reach"; status=1 ;;
        esac
    done <"$list"
}

own src src
own kit kit
own service service kit
own cli cli kit service
own python/src python/src kit
own postgresql postgresql src
own include/veldan include/veldan
refuse "public headers know none of ours but each other" '"' include/veldan
refuse "only the command knows its options" 'CLI/' include src kit service
refuse "only the service knows HTTP" '(httplib|openssl/ssl)' include src kit cli
refuse "stored networks and image tools stand by themselves" '(api|align|attr|detect|engine|recog)/' src/models src/tool
refuse "what engines share knows no engine" '(api|align|attr|detect|models|recog)/' src/engine
refuse "engines know each other only where a face is aligned" '(api|attr|detect|models|recog)/' src/align
refuse "engines know each other only where a face is aligned" '(api|detect|models|recog)/' src/attr
refuse "engines know each other only where a face is aligned" '(api|attr|detect|models)/' src/recog
refuse "the detector knows no other engine" '(api|align|attr|models|recog)/' src/detect
refuse "only a gallery knows how it is kept" 'sqlite3|SQLiteCpp|libpq' \
    include src cli service kit/report kit/system kit/photo kit/video
refuse "the server loads the extension, and not OpenCV with it" '(api|align|attr|detect)/|opencv2/' postgresql
refuse "reports know no other room" '(system|photo|gallery|video)/' kit/report
refuse "files and threads know reports only" '(photo|gallery|video)/' kit/system
refuse "photos know neither galleries nor videos" '(gallery|video)/' kit/photo
refuse "galleries and videos do not know each other" 'video/' kit/gallery
refuse "galleries and videos do not know each other" 'gallery/' kit/video
# Whoever is above the public C++ interface uses it, and not the engines that an instance owns.
if grep -rnE --include='*.hpp' --include='*.cpp' 'VdFaceAPI *[&*>]|void *\* *handle' cli service kit; then
    echo "^ veldan::Instance serves there"
    status=1
fi
exit $status
