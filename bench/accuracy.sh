#!/usr/bin/env bash
# How well the filter tells spam from ham on the public corpus that scripts/demo.sh has fetched, or on a folder with
# the same groups:
#   bench/accuracy.sh [FOLDER]
# SEEDS="1 2 3" chooses the cuts 60/40; their means are printed. Where bogofilter and spamprobe are installed, they
# are tested on the last row's mail, too. What a filter isn't sure of counts as missed spam, and as good mail.
set -euo pipefail
cd "$(dirname "$0")/.."
data=${1:-build/corpus/package/data}
[ -d "$data/spam-1" ] || { echo "accuracy.sh: no corpus in $data; scripts/demo.sh fetches it" >&2; exit 1; }
bin=$PWD/build/release/bin
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

row() { printf '%-44s %9s %16s %12s %9s\n' "$@"; }
# Three rates and the ROC area of an evaluation.
figures() {
    "$bin/tvrctl" eval --quiet "$@" |
        awk '/^Accuracy/ { a = $2 } /^False/ { f = $3 } /^Missed/ { m = $3 } /^ROC/ { print a, f, m, $3 }'
}

row "" right "false positives" "missed spam" ROC
for seed in ${SEEDS:-1 2 3 4 5 6 7 8 9 10}; do
    figures --seed "$seed" --spam "$data"/spam-* --ham "$data"/*-ham-*
done >"$work/seeds"
# shellcheck disable=SC2046
row "60/40 at random, $(wc -l <"$work/seeds") cuts" \
    $(awk '{ a += $1; f += $2; m += $3; r += $4 }
           END { printf "%.2f%% %.2f%% %.2f%% %.5f", a / NR, f / NR, m / NR, r / NR }' "$work/seeds")
# shellcheck disable=SC2046
row "60/40 by time" $(figures --by-time --spam "$data"/spam-* --ham "$data"/*-ham-* |
    awk '{ print $1 "%", $2 "%", $3 "%", $4 }')

train=(--spam "$data/spam-1" --ham "$data/easy-ham-1")
test_spam=("$data/spam-2")
test_ham=("$data/easy-ham-2" "$data/hard-ham-1")
# shellcheck disable=SC2046
row "other groups: spam-2, easy-ham-2, hard-ham-1" \
    $(figures "${train[@]}" --test-spam "${test_spam[@]}" --test-ham "${test_ham[@]}" |
        awk '{ print $1 "%", $2 "%", $3 "%", $4 }')

# A peer's verdicts, one a line and an "S" or "SPAM" first for spam, in two files.
peer_row() {
    local caught spam wrong ham
    caught=$(grep -c '^S' "$2" || true) spam=$(wc -l <"$2")
    wrong=$(grep -c '^S' "$3" || true) ham=$(wc -l <"$3")
    # shellcheck disable=SC2046
    row "  $1" $(awk -v c="$caught" -v s="$spam" -v w="$wrong" -v h="$ham" 'BEGIN {
        printf "%.2f%% %.2f%% %.2f%% -", 100 * (c + h - w) / (s + h), 100 * w / h, 100 * (s - c) / s }')
}
if command -v bogofilter >/dev/null; then
    mkdir "$work/bogofilter"
    bogofilter -d "$work/bogofilter" -s -B "$data/spam-1"
    bogofilter -d "$work/bogofilter" -n -B "$data/easy-ham-1"
    # Its exit code is the last verdict; 3 is an error.
    find "${test_spam[@]}" -type f | bogofilter -d "$work/bogofilter" -T -b | cut -d" " -f2 >"$work/spam" || [ $? -lt 3 ]
    find "${test_ham[@]}" -type f | bogofilter -d "$work/bogofilter" -T -b | cut -d" " -f2 >"$work/ham" || [ $? -lt 3 ]
    peer_row bogofilter "$work/spam" "$work/ham"
fi
if command -v spamprobe >/dev/null; then
    mkdir "$work/spamprobe"
    probe() { xargs -0 spamprobe -c -d "$work/spamprobe" "$1" 2>/dev/null; }
    find "$data/spam-1" -type f -print0 | probe spam
    find "$data/easy-ham-1" -type f -print0 | probe good
    find "${test_spam[@]}" -type f -print0 | probe score >"$work/spam"
    find "${test_ham[@]}" -type f -print0 | probe score >"$work/ham"
    peer_row spamprobe "$work/spam" "$work/ham"
fi
