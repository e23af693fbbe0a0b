#!/bin/bash
# usage: check_completion.sh PAGES bash|zsh|fish
# What a shell makes of unfinished command lines.
set -euo pipefail
export LC_ALL=C.UTF-8
completions=$(realpath "$1/completions")
shell=$2

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder"
touch "party photo.jpg" port.jpg
mkdir -p people home
export HOME=$folder/home

# Each of these prints what the line's last word may become, one a line.
complete_bash() {
    bash --norc -c 'source "$1/veldan.bash"; shift
        COMP_WORDS=("$@") COMP_CWORD=$(($# - 1)); _veldan; printf "%s\n" "${COMPREPLY[@]}"' bash "$completions" "$@"
}
complete_fish() {
    fish --no-config -c 'source $argv[1]/veldan.fish; complete -C "$argv[2..]"' "$completions" "$@" | cut -f 1 | sed 's,/$,,'
}
# zsh completes at a terminal alone, and on a line: the last word of the line is what it became.
complete_zsh() {
    # shellcheck disable=SC2016
    zsh -f -c '
        zmodload zsh/zpty
        zpty line zsh -f -i
        zpty -w line "PROMPT= RPROMPT=; unsetopt zle_bracketed_paste; stty -echo; autoload -Uz compinit; fpath=($1 \$fpath)"
        zpty -w line "compinit -u -d ~/dump; bindkey \"^I\" complete-word; show() { print -r \"[[\$BUFFER]]\"; zle kill-whole-line }"
        zpty -w line "zle -N show; bindkey \"^X\" show; print REA\"\"DY"
        zpty -r line text "*READY*"
        zpty -w -n line "${*[2,-1]}"$'\''\t\x18'\''
        zpty -r line text "*\[\[*\]\]*"
        zpty -d line
        print -r -- ${${text##*\[\[}%%\]\]*}' zsh "$completions" "$@" | sed 's/ *$//; s/.* //; s/=$//; s,/$,,'
}

status=0
# expect RESULT... -- WORD...: the last of the words becomes one of the results.
expect() {
    local wanted=()
    while [ "$1" != -- ]; do
        wanted+=("$1")
        shift
    done
    shift
    local found
    found=$("complete_$shell" "$@" | sort -u | tr '\n' '|')
    if [ "$found" != "$(printf '%s|' "${wanted[@]}")" ]; then
        echo "$shell: $* -> $found, not ${wanted[*]}"
        status=1
    fi
}

expect detect -- veldan de
expect remove -- veldan gallery rem
expect --photo -- veldan gallery remove --ph
expect --gallery -- veldan gallery rename --ga
expect identify -- veldan help ident
expect liveness -- veldan calibrate liv
expect port.jpg -- veldan detect --draw por
expect port.jpg -- veldan detect --json por
expect people -- veldan inspect --aligned peo
expect info -- veldan template inf
# zsh leaves a line with several answers alone, as fish and bash do, and shows them where only a person can see them.
if [ "$shell" != zsh ]; then
    expect remove rename -- veldan gallery re
    expect --jobs --json -- veldan detect --j
    expect people -- veldan inspect --aligned p
    if [ "$shell" = bash ]; then
        expect "party photo.jpg" people port.jpg -- veldan match p
        expect port.jpg -- veldan match --draw = por
        expect "" -- veldan detect --jobs p
    fi
fi
exit $status
