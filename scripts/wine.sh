#!/usr/bin/env bash
# Runs a program of the Windows build in a Wine prefix of its own, which is made when it is missing and holds
# nothing that matters:
#   scripts/wine.sh PROGRAM [ARGUMENTS]
#   scripts/wine.sh --begin              start the prefix's services, and keep them until --end
#   scripts/wine.sh --end                end whatever runs in that prefix
# Without --begin the first program starts the services, and they hold its output open: whoever reads that to
# its end waits until no program runs in the prefix. Each program that a program starts holds its standard error;
# so, if that is a pipe, it goes to the file errors in the prefix in its place.
# The prefix lies in build/windows/wine, or where TESSIVAR_WINE_PREFIX says.
set -euo pipefail
export WINEPREFIX="${TESSIVAR_WINE_PREFIX:-$(cd "$(dirname "$0")/.." && pwd)/build/windows/wine}"
export WINEDEBUG="${WINEDEBUG:--all}" WINEDLLOVERRIDES="mscoree,mshtml="
PATH="/usr/lib/wine:$PATH"
wine="$(command -v wine64 || command -v wine)"
server="$(command -v wineserver64 || command -v wineserver)"
export WINESERVER="$server"

if [ "${1:-}" = --end ]; then
    [ ! -d "$WINEPREFIX" ] || "$server" -k || true
    exit 0
fi
if [ ! -e "$WINEPREFIX/ready" ]; then
    mkdir -p "$WINEPREFIX"
    (
        flock 9
        if [ ! -e "$WINEPREFIX/ready" ]; then
            "$wine" wineboot -i
            # Windows without a display: no X server is needed.
            "$wine" reg add 'HKCU\Software\Wine\Drivers' /v Graphics /d null /f
            "$server" -k || true
            "$server" -w
            touch "$WINEPREFIX/ready"
        fi
    ) 9>"$WINEPREFIX/lock" >"$WINEPREFIX/log" 2>&1
fi
if [ "${1:-}" = --begin ]; then
    # A command interpreter that waits for input. It holds the other end of its input itself, so it never comes.
    mkfifo "$WINEPREFIX/nothing"
    exec 8<>"$WINEPREFIX/nothing"
    setsid "$wine" cmd <&8 >/dev/null 2>&1 &
    rm "$WINEPREFIX/nothing"
    exit 0
fi
[ ! -p /dev/fd/2 ] || exec 2>>"$WINEPREFIX/errors"
exec "$wine" "$@"
