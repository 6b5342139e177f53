#!/usr/bin/env bash
# Reads in programs and libraries whether they are hardened: position independent, with a stack protector, an
# address table that is complete and read-only before the first line runs, and a stack that isn't executable.
#   scripts/check-hardening.sh [--fortify] FILE...     --fortify: with checked library calls, too
set -euo pipefail # so that the last grep of a pipe reads all: the others mustn't die of a closed one
export LC_ALL=C
fortify=0
[ "${1:-}" != --fortify ] || { fortify=1; shift; }
[ "$#" -gt 0 ] || { echo "check-hardening.sh: no file" >&2; exit 2; }

failed=0
wrong() {
    echo "WRONG: $*" >&2
    failed=1
}
for file in "$@"; do
    header=$(readelf -hW "$file")
    segments=$(readelf -lW "$file")
    dynamic=$(readelf -dW "$file")
    symbols=$(readelf --dyn-syms -W "$file")
    grep -q 'Type: *DYN' <<<"$header" || wrong "$file has a fixed address"
    if grep -q ' INTERP ' <<<"$segments"; then
        grep -q '(FLAGS_1).* PIE' <<<"$dynamic" || wrong "$file isn't a position independent program"
    fi
    grep -q ' GNU_RELRO ' <<<"$segments" || wrong "$file has no read-only relocations"
    grep -qE '\((FLAGS|FLAGS_1)\).* (BIND_)?NOW' <<<"$dynamic" || wrong "$file binds functions late"
    grep ' GNU_STACK ' <<<"$segments" | grep ' RW  ' >/dev/null || wrong "$file has an executable stack"
    ! grep -q 'TEXTREL' <<<"$dynamic" || wrong "$file has relocations in its code"
    grep -q ' __stack_chk_fail' <<<"$symbols" || wrong "$file has no stack protector"
    if [ "$fortify" = 1 ]; then
        grep ' UND ' <<<"$symbols" | grep -v __stack_chk_fail | grep -E ' __[a-z_]+_chk(@|$)' >/dev/null ||
            wrong "$file has no checked library calls"
    fi
done
exit "$failed"
