#!/usr/bin/env bash
# Runs the targets of tests/fuzz under libFuzzer, with the checks of addresses and undefined behaviour.
#   scripts/fuzz.sh                        all of them, 600 seconds each, two at a time
#   scripts/fuzz.sh SECONDS [TARGET...]    so long, and these
# What a run learns is kept in build/fuzz/corpus, inputs that end it in build/fuzz/found. An input fails that
# takes more than 5 seconds, a block of more than 128 MiB, or 600 MiB in all. To run one again:
#   TVR_FUZZ_TARGET=TARGET build/fuzz/bin/tvr_fuzz FILE
# FUZZ_JOBS: how many at a time. FUZZ_OPTIONS: further options of libFuzzer, as "-entropic=0 -max_len=1024".
set -euo pipefail
cd "$(dirname "$0")/.."
export ASAN_OPTIONS=detect_leaks=0:malloc_context_size=2:quarantine_size_mb=16 UBSAN_OPTIONS=print_stacktrace=1

if [ "${1:-}" = --one ]; then
    seconds=$2 target=$3 longest=$4 build=build/fuzz
    mkdir -p "$build/corpus/$target" "$build/found" "$build/logs"
    log=$build/logs/$target result=clean
    TVR_FUZZ_TARGET=$target "$build/bin/tvr_fuzz" -max_total_time="$seconds" -max_len="$longest" -timeout=5 \
        -rss_limit_mb=600 -malloc_limit_mb=128 -artifact_prefix="$build/found/$target-" -print_final_stats=1 \
        ${FUZZ_OPTIONS:-} "$build/corpus/$target" "$build/seeds/$target" >"$log" 2>&1 || result="FAILED, see $log"
    echo "$target: $(awk '/number_of_executed_units/ { print $2 }' "$log") executions," \
         "peak $(awk '/peak_rss_mb/ { print $2 }' "$log") MiB, $result"
    [ "$result" = clean ]
    exit
fi

seconds=${1:-600}
shift || true
scripts/install-deps.sh --fuzz
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz
rm -rf build/fuzz/seeds
build/fuzz/bin/fuzz_replay tests/mail --write build/fuzz/seeds
build/fuzz/bin/fuzz_replay tests/mail --list | while read -r target longest; do
    if [ $# -eq 0 ] || [[ " $* " == *" $target "* ]]; then
        echo "$seconds $target $longest"
    fi
done | xargs -P "${FUZZ_JOBS:-2}" -L 1 scripts/fuzz.sh --one
