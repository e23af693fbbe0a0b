#!/bin/sh
# usage: check_sources.sh SOURCE_TREE
# Sources are ASCII without tabs or trailing blanks; shell scripts parse.
set -eu
export LC_ALL=C
cd "$1"

status=0
sources() {
    find include src kit service cli postgresql tests bench examples cmake training scripts -type f \
        \( -name '*.h' -o -name '*.hpp' -o -name '*.c' -o -name '*.cpp' -o -name '*.cmake' -o -name 'CMakeLists.txt' \
        -o -name '*.py' -o -name '*.sh' -o -name '*.map' -o -name '*.in' \) -not -path 'training/work/*' 2>/dev/null
}
[ "$(sources | wc -l)" -gt 40 ] || { echo "hardly any sources found in $1"; exit 1; }
tab=$(printf '\t')
sources | xargs grep -nH "[^ -~$tab]" && { echo "not ASCII"; status=1; }
sources | xargs grep -nH "$tab" && { echo "tab"; status=1; }
sources | xargs grep -nHE ' +$' && { echo "blank at the end of a line"; status=1; }
for script in *.sh .ci/run $(sources | grep '\.sh$'); do
    case $(head -n 1 "$script") in
        *bash*) bash -n "$script" || status=1 ;;
        *) sh -n "$script" || status=1 ;;
    esac
done
exit $status
