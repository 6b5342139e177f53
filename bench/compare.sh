#!/usr/bin/env bash
# Trains this engine and bogofilter on the same mail in the same run, and prints the ratios.
#   bench/compare.sh                               the public corpus that scripts/demo.sh has fetched
#   bench/compare.sh --spam DIR... --ham DIR...    folders of single messages
# RUNS=5 sets the number of rounds; the medians count. bogofilter registers each half in one process, as it
# does fastest (-B), with its default database.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh --dev
cmake --preset release >/dev/null
cmake --build --preset release --target tvr_srv tvrctl >/dev/null
bin=$PWD/build/release/bin

spam=() ham=() list=
for argument in "$@"; do
    case "$argument" in
    --spam|--ham) list=$argument ;;
    *) if [ "$list" = --spam ]; then spam+=("$argument"); else ham+=("$argument"); fi ;;
    esac
done
if [ "$#" -eq 0 ]; then
    data=build/corpus/package/data
    [ -d "$data" ] || { echo "compare.sh: run scripts/demo.sh first: it fetches the corpus" >&2; exit 1; }
    spam=("$data"/spam-*) ham=("$data"/*-ham-*)
fi
messages=$(find "${spam[@]}" "${ham[@]}" -type f | wc -l)

work=$(mktemp -d)
export TESSIVAR_ROOT=$work/root
trap '"$bin/tvrctl" stop >/dev/null 2>&1 || true; rm -rf "$work"' EXIT

now() { date +%s.%N; }
since() { echo "$(now) $1" | awk '{ printf "%.3f\n", $1 - $2 }'; }
median() { sort -n "$1" | awk '{ all[NR] = $1 } END { print all[int((NR + 1) / 2)] }'; }

for ((run = 0; run < ${RUNS:-5}; ++run)); do
    rm -rf "$work/bogofilter"
    mkdir "$work/bogofilter"
    start=$(now)
    bogofilter -d "$work/bogofilter" -s -B "${spam[@]}"
    bogofilter -d "$work/bogofilter" -n -B "${ham[@]}"
    since "$start" >>"$work/bogofilter.seconds"

    rm -rf "$TESSIVAR_ROOT"
    start=$(now)
    "$bin/tvrctl" train --quiet --wait --spam "${spam[@]}" --ham "${ham[@]}" >"$work/out"
    since "$start" >>"$work/tvrctl.seconds"
    sed -n 's/^Trained in \([0-9.]*\) s.*/\1/p' "$work/out" >>"$work/engine.seconds"
    sed -n 's/.*peaked at \([0-9.]*\) MiB.*/\1/p' "$work/out" >>"$work/peak.mib"
    size=$(du -sk "$TESSIVAR_ROOT" | cut -f1)
    pid=$("$bin/tvrctl" status --json | sed -n 's/.*"pid": \([0-9]*\).*/\1/p')
    awk '/^VmRSS/ { printf "%.1f\n", $2 / 1024 }' "/proc/$pid/status" >>"$work/idle.mib"
    "$bin/tvrctl" stop >/dev/null
done
bogofilter_size=$(du -sk "$work/bogofilter" | cut -f1)

peer=$(median "$work/bogofilter.seconds")
whole=$(median "$work/tvrctl.seconds")
engine=$(median "$work/engine.seconds")
echo "$messages messages, medians of ${RUNS:-5} rounds"
row() { printf '%-46s %10s %14s %8s\n' "$@"; }
row "" seconds "messages/s" ratio
rate() { echo "$messages $1" | awk '{ printf "%.0f", $1 / $2 }'; }
ratio() { echo "$peer $1" | awk '{ printf "%.2f", $1 / $2 }'; }
row "bogofilter, registering" "$peer" "$(rate "$peer")" 1.00
row "tvrctl train --wait, mail to published base" "$whole" "$(rate "$whole")" "$(ratio "$whole")"
row "  of it the engine, records to published base" "$engine" "$(rate "$engine")" "$(ratio "$engine")"
echo "Engine: memory peak $(median "$work/peak.mib") MiB, idle $(median "$work/idle.mib") MiB resident;" \
    "on disk $size KiB (bogofilter $bogofilter_size KiB)"
