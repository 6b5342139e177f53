#!/usr/bin/env bash
# Trains this engine and bogofilter on the same mail in the same run, and prints the ratios: all of it at once,
# 500 messages more into a base of the others, and one message through a mail pipe.
#   bench/compare.sh                               the public corpus that scripts/demo.sh has fetched
#   bench/compare.sh --spam DIR... --ham DIR...    folders of single messages
# RUNS=5 sets the number of rounds; the medians count. bogofilter registers each half in one process, as it
# does fastest (-B), with its default database.
set -euo pipefail
cd "$(dirname "$0")/.."
source bench/trials.sh
messages=$(find "${spam[@]}" "${ham[@]}" -type f | wc -l)

now() { date +%s.%N; }
since() { echo "$(now) $1" | awk '{ printf "%.3f\n", $1 - $2 }'; }

# Of both kinds as many as they have of all; the others are there before.
batch=500
mkdir -p "$work"/{batch,rest}/{spam,ham}
share() { # KIND FOLDER...
    local kind=$1
    shift
    find "$@" -type f | sort | awk -v all="$messages" -v batch="$batch" -v at="$work" -v kind="$kind" '{
        taken += batch / all
        where = int(taken) > int(taken - batch / all) ? "batch" : "rest"
        printf "%s\t%s/%s/%s/%06d\n", $0, at, where, kind, NR
    }' | while IFS=$'\t' read -r from to; do ln "$from" "$to" 2>/dev/null || cp "$from" "$to"; done
}
share spam "${spam[@]}"
share ham "${ham[@]}"
one=$(find "$work/batch/ham" -type f | sort | head -1)

register() {
    bogofilter -d "$work/bogofilter" -s -B "${spam[@]}" && bogofilter -d "$work/bogofilter" -n -B "${ham[@]}"
}
learn_all() { # SPAM HAM, folders
    bogofilter -d "$work/bogofilter" -s -B "$1" && bogofilter -d "$work/bogofilter" -n -B "$2"
}
train() { "$bin/tvrctl" train --quiet --wait "$@" >"$work/out"; }
pipe_times=50
pipe() { # COMMAND...
    for ((i = 0; i < pipe_times; ++i)); do "$@" <"$one" >/dev/null || true; done
}
timed() { # NAME COMMAND...
    local name=$1 start
    shift
    sync # what the one before has written isn't the next one's to wait for
    start=$(now)
    "$@"
    since "$start" >>"$work/$name"
}

for ((run = 0; run < ${RUNS:-5}; ++run)); do
    rm -rf "$work/bogofilter" "$TESSIVAR_ROOT"
    mkdir "$work/bogofilter"
    timed bogofilter.seconds register
    bogofilter_size=$(du -sk "$work/bogofilter" | cut -f1)

    timed tvrctl.seconds train --spam "${spam[@]}" --ham "${ham[@]}"
    sed -n 's/^Trained in \([0-9.]*\) s.*/\1/p' "$work/out" >>"$work/engine.seconds"
    sed -n 's/.*peaked at \([0-9.]*\) MiB.*/\1/p' "$work/out" >>"$work/peak.mib"
    size=$(du -sk "$TESSIVAR_ROOT" | cut -f1)
    pid=$("$bin/tvrctl" status --json | sed -n 's/.*"pid": \([0-9]*\).*/\1/p')
    awk '/^VmRSS/ { printf "%.1f\n", $2 / 1024 }' "/proc/$pid/status" >>"$work/idle.mib"
    timed bogofilter.pipe pipe bogofilter -d "$work/bogofilter" -p
    timed tvrctl.pipe pipe "$bin/tvrctl" score --filter
    "$bin/tvrctl" stop >/dev/null

    rm -rf "$work/bogofilter" "$TESSIVAR_ROOT"
    mkdir "$work/bogofilter"
    learn_all "$work/rest/spam" "$work/rest/ham"
    train --spam "$work/rest/spam" --ham "$work/rest/ham"
    timed bogofilter.batch learn_all "$work/batch/spam" "$work/batch/ham"
    timed tvrctl.batch train --spam "$work/batch/spam" --ham "$work/batch/ham"
    "$bin/tvrctl" stop >/dev/null
done

peer=$(median "$work/bogofilter.seconds")
whole=$(median "$work/tvrctl.seconds")
engine=$(median "$work/engine.seconds")
echo "$messages messages, medians of ${RUNS:-5} rounds"
row() { printf '%-46s %10s %14s %8s\n' "$@"; }
rate() { echo "$1 $2" | awk '{ printf "%.0f", $1 / $2 }'; }
ratio() { echo "$1 $2" | awk '{ printf "%.2f", $1 / $2 }'; }
row "" seconds "messages/s" ratio
row "bogofilter, registering" "$peer" "$(rate "$messages" "$peer")" 1.00
row "tvrctl train --wait, mail to published base" "$whole" "$(rate "$messages" "$whole")" "$(ratio "$peer" "$whole")"
row "  of it the engine, records to published base" "$engine" "$(rate "$messages" "$engine")" "$(ratio "$peer" "$engine")"
rows_of() { # FILE LABEL LABEL MESSAGES
    local its ours
    its=$(median "$work/bogofilter.$1") ours=$(median "$work/tvrctl.$1")
    row "$2" "$its" "$(rate "$4" "$its")" 1.00
    row "$3" "$ours" "$(rate "$4" "$ours")" "$(ratio "$its" "$ours")"
}
rows_of batch "bogofilter, $batch more" "tvrctl train --wait, $batch more" "$(find "$work/batch" -type f | wc -l)"
rows_of pipe "bogofilter -p, one message $pipe_times times" "tvrctl score --filter, the same" "$pipe_times"
cmake --build --preset release --target tvr_bench >/dev/null
"$bin/tvr_bench" --benchmark_filter=base_grade --benchmark_repetitions=25 --benchmark_min_time=0.1 \
    --benchmark_enable_random_interleaving=true --benchmark_report_aggregates_only=true --benchmark_format=csv \
    2>/dev/null | tr -d '"' | awk -F, '$1 ~ /_median$/ { ns[$1] = 1e9 / $7 }
    function told(kind) { it = ns["base_grade_abseil/" kind "_median"]; we = ns["base_grade/" kind "_median"]
                          return sprintf("%.1f (%.2f times absl::flat_hash_map)", we, it ? we / it : 0) }
    END { print "The grade of a token, of 94,000, in ns: known " told("hit") ", unknown " told("miss") }'
echo "Engine: memory peak $(median "$work/peak.mib") MiB, idle $(median "$work/idle.mib") MiB resident;" \
    "on disk $size KiB (bogofilter $bogofilter_size KiB)"
