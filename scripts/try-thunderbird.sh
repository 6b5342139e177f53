#!/usr/bin/env bash
# Shows the add-on at work in a real Thunderbird: on a screen of its own (Xvfb), with a fresh profile, an account at Dovecot
# on the loopback address, and mail of the public corpus. Takes a quarter of an hour, and is no part of the suite.
#   scripts/try-thunderbird.sh [--pictures FOLDER] [PART...]
# The parts, all of them by default: learn sort explain keys restarts many. Each needs the first one.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh --thunderbird --demo
pictures=()
if [ "${1:-}" = --pictures ]; then
    pictures=(--pictures "$(realpath -m "$2")")
    shift 2
fi
cmake --preset release >/dev/null
cmake --build --preset release --target tvrctl tvr_srv
xpi=$(scripts/make-addon.sh build)
corpus=${TESSIVAR_CORPUS:-build/corpus/package/data}
[ -d "$corpus" ] || scripts/demo.sh >/dev/null
exec python3 -u scripts/thunderbird/trial.py --programs build/release/bin --xpi "$xpi" --corpus "$corpus" \
    "${pictures[@]}" "$@"
