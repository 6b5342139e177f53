#!/usr/bin/env bash
# Runs each example of the help, and so of the manual page, as it stands.
#   examples_check.sh TVRCTL MAIL
set -euo pipefail
tvrctl=$1 mail=$2
scratch=$(mktemp -d)
trap '"$tvrctl" stop >/dev/null 2>&1 || true; rm -rf "$scratch"' EXIT
export TESSIVAR_ROOT=$scratch/root HOME=$scratch/home PATH=$scratch/bin:$(dirname "$tvrctl"):$PATH
mkdir -p "$TESSIVAR_ROOT" "$HOME"/mail/{archive,rubbish} "$scratch/bin" "$HOME"/Maildir/{,.Spam/}{cur,new,tmp}
printf '#!/bin/sh\nshift\nexec "$@"\n' >"$scratch/bin/ssh" # ssh HOST COMMAND...
chmod +x "$scratch/bin/ssh"
cd "$scratch"

# What the examples name.
number=0
for file in "$mail"/spam/*; do cp "$file" "$HOME/Maildir/.Spam/cur/$((++number)):2,S"; done
for file in "$mail"/ham/*; do cp "$file" "$HOME/Maildir/cur/$((++number)):2,S"; done
cp "$file" message.eml
{ echo "From someone@example.org Thu Aug 22 18:30:05 2002" && cat message.eml; } >"$HOME/mail/archive.mbox"
"$tvrctl" tokenize -q --spam "$HOME/Maildir/.Spam" -o spam.records
"$tvrctl" tokenize -q --ham "$HOME/Maildir" -o ham.records
"$tvrctl" train -q --wait --records spam.records ham.records >/dev/null
"$tvrctl" export base.txt 2>/dev/null

below() { # the commands that a help lists
    awk '/^Subcommands:/ { on = 1; next } /^$/ { on = 0 } on && /^  [^ ]/ { print $1 }'
}
examples() { # COMMAND...
    "$tvrctl" "$@" --help | awk '/^Examples?:/ { on = 1; next } /^$/ { on = 0 } on'
}

failed=0 run=0
while IFS= read -r line; do
    line=${line#  }
    [[ $line != *export* ]] || "$tvrctl" train -q --wait --records spam.records ham.records >/dev/null
    code=0
    timeout 60 bash -c "set -o pipefail; ${line/tvrctl watch/timeout 2 tvrctl watch}" >out 2>&1 </dev/null || code=$?
    case $line:$code in
    *:0 | *--stream*:3 | *watch*:124 | *score*:[12] | *forget*:1 | *grep*:1) ;;
    *)
        echo "\"$line\" ends with $code:"
        cat out
        failed=1
        ;;
    esac >&2
    run=$((run + 1))
done < <("$tvrctl" --help | below | while read -r command; do
    examples "$command"
    "$tvrctl" "$command" --help | below | while read -r part; do examples "$command" "$part"; done
done)
[ "$run" -gt 20 ] || { echo "only $run examples were found" >&2 && failed=1; }
exit "$failed"
