#!/usr/bin/env bash
# What it costs that everything stands on the disk before something is built on it: the same work with and
# without (eatmydata leaves every sync out), in turns, on the disk that TMPDIR is on.
#   bench/durability.sh                            the public corpus that scripts/demo.sh has fetched
#   bench/durability.sh --spam DIR... --ham DIR... folders of single messages
# RUNS=9 sets the number of rounds; the medians count.
set -euo pipefail
cd "$(dirname "$0")/.."
source bench/trials.sh
mapfile -t some_spam < <(find "${spam[@]}" -type f | sort | head -n 250)
mapfile -t some_ham < <(find "${ham[@]}" -type f | sort | head -n 250)

# Trains, and notes the seconds of the whole and of the engine alone.
train() { # NAME ARGUMENT...
    local name=$1 start
    shift
    start=$(date +%s%N)
    "${without[@]}" "$bin/tvrctl" train --quiet --wait --again "$@" >"$work/out"
    echo "$(($(date +%s%N) - start))" | awk '{ printf "%.4f\n", $1 / 1e9 }' >>"$work/$name.whole.$kind"
    sed -n 's/^Trained in \([0-9.]*\) s.*/\1/p' "$work/out" >>"$work/$name.engine.$kind"
}

for ((run = 0; run < ${RUNS:-9}; ++run)); do
    for kind in with without; do
        without=()
        if [ "$kind" = without ]; then without=(eatmydata); fi
        rm -rf "$TESSIVAR_ROOT"
        train corpus --spam "${spam[@]}" --ham "${ham[@]}"
        train 500 --spam "${some_spam[@]}" --ham "${some_ham[@]}"
        train 1 --spam "${some_spam[0]}"
        "$bin/tvrctl" stop >/dev/null
    done
done

row() { printf '%-42s %10s %10s %8s\n' "$@"; }
row "seconds, medians of ${RUNS:-9} rounds" with without ratio
compare() { # TITLE NAME
    local on off
    on=$(median "$work/$2.with")
    off=$(median "$work/$2.without")
    row "$1" "$on" "$off" "$(echo "$on $off" | awk '{ printf "%.2f", $1 / $2 }')"
}
compare "the corpus, mail to published base" corpus.whole
compare "  of it the engine" corpus.engine
compare "500 messages more, mail to published base" 500.whole
compare "  of it the engine" 500.engine
compare "one message more, mail to published base" 1.whole
compare "  of it the engine" 1.engine
