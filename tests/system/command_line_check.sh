#!/bin/bash
# Whether every command of tvrctl is helped, documented and completed, and every key of tvr_srv documented.
#   command_line_check.sh TVRCTL SOURCE_FOLDER
set -u
tvrctl=$1 source=$2
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
export TESSIVAR_ROOT=$scratch/root
failed=0
wrong() {
    echo "$*" >&2
    failed=1
}
# Fixed text in a text.
has() { [[ $1 == *"$2"* ]]; }

# --- what the program tells ---
mapfile -t commands < <("$tvrctl" --help | sed -n '/^Subcommands:/,/^$/s/^  \([a-z]*\) .*/\1/p')
[ "${#commands[@]}" -ge 15 ] || wrong "tvrctl --help lists only ${#commands[@]} commands"
for command in "${commands[@]}"; do
    help=$("$tvrctl" "$command" --help) || wrong "tvrctl $command --help fails"
    [[ $help =~ Examples?:$'\n'"  tvrctl $command" || $help =~ Examples?:$'\n'"  tvrctl "[a-z\ -]*"; tvrctl ".*"tvrctl $command" ]] ||
        wrong "tvrctl $command --help: no example of it"
    grep -qw "$command" "$source/README.md" || wrong "README.md: no tvrctl $command"
done

# --- output that nobody gets ---
for words in "status" "status --json" "config list" "verify" "stop" "--help" "score --help"; do
    code=0
    # shellcheck disable=SC2086
    "$tvrctl" $words >/dev/full 2>/dev/null || code=$?
    [ "$code" = 3 ] || wrong "tvrctl $words on a full disk answers $code"
done
exec 5> >(true)
wait $! # nobody reads any more
code=0
"$tvrctl" status >&5 2>/dev/null || code=$?
exec 5>&-
[ "$code" = 3 ] || wrong "tvrctl status into a closed pipe answers $code"

# --- the manual pages ---
"$source/packaging/make-man.sh" "$tvrctl" "$source/packaging/tvrctl.1.in" 0 >"$scratch/tvrctl.1"
cp "$source/packaging/tvr_srv.1" "$scratch"
page=$(sed 's/\\-/-/g; s/\\f[BIR]//g' "$scratch/tvrctl.1")
for command in "${commands[@]}"; do
    has "$page" ".SS tvrctl $command" || wrong "tvrctl.1: no tvrctl $command"
    while read -r option; do
        has "${page#*.SS tvrctl $command}" "$option" || wrong "tvrctl.1: no $option of $command"
    done < <("$tvrctl" "$command" --help | grep -oE '^  (-[a-z],)?--[a-z-]+' | grep -oE -- '--[a-z-]+' | grep -vx -- --help)
done
page=$(sed 's/\\-/-/g' "$scratch/tvr_srv.1")
mapfile -t keys < <(grep -oE '\{"[/-][A-Za-z]+"' "$source/src/server/entry.cpp" | grep -oE '[/-][A-Za-z]+')
[ "${#keys[@]}" -ge 13 ] || wrong "entry.cpp has only ${#keys[@]} keys"
for key in "${keys[@]}"; do
    has "$page" "$key" || wrong "tvr_srv.1: no $key"
done
if command -v groff >/dev/null; then
    for file in tvrctl.1 tvr_srv.1; do
        warnings=$(groff -man -Tutf8 -ww "$scratch/$file" 2>&1 >/dev/null)
        [ -z "$warnings" ] || wrong "$file: $warnings"
    done
fi

# --- the completion ---
source "$source/packaging/tvrctl.bash-completion"
# completed WORD...: what stands for the last one; the others are typed already.
completed() {
    COMP_WORDS=("$tvrctl" "$@")
    COMP_CWORD=$#
    _tvrctl
    printf '%s|' "${COMPREPLY[@]}"
}
expect() {
    local wanted=$1 got
    shift
    got=$(completed "$@")
    [ "$got" = "$wanted|" ] || wrong "completing [$*]: $got"
}
expect "$(IFS='|' && echo "${commands[*]}")" ""
for command in "${commands[@]}"; do
    got=$(completed "$command" --)
    while read -r option; do
        has "|$got" "|$option|" || wrong "completing [$command --]: no $option in $got"
    done < <("$tvrctl" "$command" --help | grep -oE '^  (-[a-z],)?--[a-z-]+' | grep -oE -- '--[a-z-]+')
done
touch "$scratch/a mail.eml"
expect score sc
expect "list|get|set|root" config ""
expect 'training\ delay' config get traini
expect 'training\ delay' config set 'Training\ d'
expect 'training delay' config set '"training d'
expect '' config set 'training\ delay' ''
expect fisher score --rule fi
expect "$scratch/a mail.eml" train --spam "$scratch/a"
expect '' status nonsense-

exit "$failed"
