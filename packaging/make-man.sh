#!/bin/sh
# Writes the manual page of tvrctl to standard output: the given frame, with what the program itself tells of its
# commands in place of the line @COMMANDS@.
#   packaging/make-man.sh TVRCTL FRAME VERSION
set -eu
folder=$(dirname "$0")

commands() {
    "$1" --help | awk '/^Subcommands:/ { on = 1; next } /^$/ { on = 0 } on { print $1 }' | while read -r command; do
        "$1" "$command" --help | awk -f "$folder/help-to-man.awk"
        "$1" "$command" --help | awk '/^Subcommands:/ { on = 1; next } /^$/ { on = 0 } on { print $1 }' |
            while read -r below; do
                "$1" "$command" "$below" --help | awk -f "$folder/help-to-man.awk"
            done
    done
}

sed "/^@COMMANDS@\$/,\$d; s/@VERSION@/$3/" "$2"
commands "$1"
sed "1,/^@COMMANDS@\$/d" "$2"
