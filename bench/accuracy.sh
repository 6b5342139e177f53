#!/usr/bin/env bash
# How well the filter tells spam from ham, beside bogofilter and SpamProbe where they are installed
# (scripts/install-deps.sh --dev), on the public corpus that scripts/demo.sh has fetched or a folder with the same
# groups:
#   bench/accuracy.sh [FOLDER]
#   bench/accuracy.sh --spam DIR... --ham DIR...     only the stream, of your own folders of message files
# BLOCK=250 is the number of messages in a block of the stream; SEEDS="1 2 3" chooses the cuts 60/40, of which the
# means are printed. What a filter isn't sure of counts as missed spam, and as good mail.
set -euo pipefail
project=$(cd "$(dirname "$0")/.." && pwd)
bin=$project/build/release/bin
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
block=${BLOCK:-250}
peers=()
for peer in bogofilter spamprobe; do
    if command -v "$peer" >/dev/null; then peers+=("$peer"); else echo "accuracy.sh: $peer isn't installed" >&2; fi
done

row() { printf '%-46s %8s %16s %12s %10s %16s\n' "$@"; }
heading() { row "" right "false positives" "missed spam" 1-ROCA "missed at 0.1%"; }
# The figures of an evaluation by tvrctl, on one line.
figures() {
    "$bin/tvrctl" eval --quiet "$@" | tee "$work/text" | awk '
        /^Right/ { a = $2 "%" } /^False/ { f = $3 "%" } /^Missed spam/ { m = $3 "%" } /^1-ROCA/ { r = $2 "%" }
        /^Missed at/ { t = $6 == "%" ? $5 "%" : "-" } END { print a, f, m, r, t }'
}
# The same figures of lines "spam verdict score": whether it is spam (1 or 0) and is called so (S or another), and the
# score, the higher the worse.
figures_of() {
    sort -k3,3gr "$1" | awk '
        function tie() { area += ham_here * (spam + spam_here / 2); spam += spam_here; ham += ham_here
                         if (ham <= ham_all / 1000 + 1e-9) found = spam
                         spam_here = ham_here = 0 }
        NR == FNR { all[$1]++; wrong[$1] += ($2 == "S") != $1; next }
        FNR == 1 { ham_all = all[0] }
        $3 != last { tie(); last = $3 }
        { if ($1) spam_here++; else ham_here++ }
        END { tie(); n = all[0] + all[1]
              printf "%.2f%% %.2f%% %.2f%% %.4f%% ", 100 * (n - wrong[0] - wrong[1]) / n, 100 * wrong[0] / all[0],
                     100 * wrong[1] / all[1], 100 * (1 - area / spam / ham)
              if (ham_all < 1000) print "-"; else printf "%.2f%%\n", 100 * (spam - found) / spam }' "$1" -
}

# The peers: a list of files for training, and one of files to judge; the latter gives "verdict score" for each.
teach_bogofilter() {
    local option=-n
    [ "$1" = ham ] || option=-s
    bogofilter -d "$work/bogofilter" $option -b <"$2"
}
# Its exit code is the last verdict; 3 is an error.
judge_bogofilter() {
    bogofilter -d "$work/bogofilter" -T -b <"$1" >"$work/letters" || [ $? -lt 3 ]
    bogofilter -d "$work/bogofilter" -TT -b <"$1" >"$work/numbers" || [ $? -lt 3 ]
    paste -d" " <(awk '{ print $(NF - 1) }' "$work/letters") <(awk '{ print $NF }' "$work/numbers")
}
probe() { tr '\n' '\0' | xargs -0 -r spamprobe -c -M -d "$work/spamprobe" "$@" 2>/dev/null; }
teach_spamprobe() { if [ "$1" = spam ]; then probe spam; else probe good; fi <"$2"; }
judge_spamprobe() { probe score <"$1" | awk '{ print substr($1, 1, 1), $2 }'; }
# Appends the verdicts on a list of "spam path" to a file.
judge() {
    cut -d" " -f2- "$2" >"$work/paths"
    "judge_$1" "$work/paths" >"$work/judged"
    [ "$(wc -l <"$work/judged")" -eq "$(wc -l <"$work/paths")" ] ||
        { echo "accuracy.sh: $1 has not judged every message" >&2; return 1; }
    paste -d" " <(cut -d" " -f1 "$2") "$work/judged" >>"$3"
}
teach() {
    local kind
    for kind in "1 spam" "0 ham"; do
        sed -n "s/^${kind%% *} //p" "$2" >"$work/paths"
        "teach_$1" "${kind#* }" "$work/paths"
    done
}
forget() { rm -rf "${work:?}/$1"; mkdir "$work/$1"; }

# Plays one stream to all: the order is tvrctl's own, as its list of scores has it.
stream() {
    local peer part name=$1 errors="$work/errors"
    shift
    # shellcheck disable=SC2046
    row "$name" $(figures --stream --block "$block" --scores "$work/scores" "$@")
    sed -n '/^Errors a block/,/^$/p' "$work/text" >"$errors"
    sed -En 's/^[0-9]+,[^,]*,([01]),[^,]*,"(.*)"$/\1 \2/p' "$work/scores" | sed 's/""/"/g' >"$work/order"
    split -l "$block" -d -a 4 "$work/order" "$work/part-"
    for peer in "${peers[@]}"; do
        forget "$peer"
        : >"$work/verdicts-$peer"
        for part in "$work"/part-*; do
            [ "$part" = "$work/part-0000" ] || judge "$peer" "$part" "$work/verdicts-$peer"
            teach "$peer" "$part"
        done
        # shellcheck disable=SC2046
        row "  $peer" $(figures_of "$work/verdicts-$peer")
        awk -v name="$peer" -v block="$block" '
            function out() { line = line sprintf(" %7s", f + 0 "+" m + 0); f = m = 0
                             if (++blocks % 10 == 0) flush_line() }
            function flush_line() { if (line != "") printf "%6d:%s\n", first, line; line = ""; first = blocks + 2 }
            BEGIN { print name; first = 2 }
            { if ($1 && $2 != "S") m++; if (!$1 && $2 == "S") f++ } NR % block == 0 { out() }
            END { if (NR % block) out(); flush_line() }' "$work/verdicts-$peer" >>"$errors"
    done
    echo
    cat "$errors"
}

if [[ ${1:-} == --* ]]; then
    heading
    stream "stream of $block a block" "$@"
    exit
fi
data=${1:-$project/build/corpus/package/data}
[ -d "$data/spam-1" ] || { echo "accuracy.sh: no corpus in $data; scripts/demo.sh fetches it" >&2; exit 1; }

heading
for seed in ${SEEDS:-1 2 3 4 5 6 7 8 9 10}; do
    figures --seed "$seed" --spam "$data"/spam-* --ham "$data"/*-ham-*
done >"$work/seeds"
# shellcheck disable=SC2046
row "60/40 at random, $(wc -l <"$work/seeds") cuts" $(tr -d % <"$work/seeds" | awk '
    { a += $1; f += $2; m += $3; r += $4; if ($5 != "-") { t += $5; n++ } }
    END { printf "%.2f%% %.2f%% %.2f%% %.4f%% ", a / NR, f / NR, m / NR, r / NR; if (n) printf "%.2f%%", t / n; else print "-" }')
# shellcheck disable=SC2046
row "60/40 by time" $(figures --by-time --spam "$data"/spam-* --ham "$data"/*-ham-*)

# shellcheck disable=SC2046
row "other groups: spam-2, easy-ham-2, hard-ham-1" $(figures --spam "$data/spam-1" --ham "$data/easy-ham-1" \
    --test-spam "$data/spam-2" --test-ham "$data/easy-ham-2" "$data/hard-ham-1")
list() { find "${@:2}" -type f | sort | sed "s/^/$1 /"; }
{ list 1 "$data/spam-1" && list 0 "$data/easy-ham-1"; } >"$work/taught"
{ list 1 "$data/spam-2" && list 0 "$data/easy-ham-2" "$data/hard-ham-1"; } >"$work/asked"
for peer in "${peers[@]}"; do
    forget "$peer"
    teach "$peer" "$work/taught"
    judge "$peer" "$work/asked" "$work/verdicts"
    # shellcheck disable=SC2046
    row "  $peer" $(figures_of "$work/verdicts")
    rm "$work/verdicts"
done
stream "all in the order of arrival, blocks of $block" --spam "$data"/spam-* --ham "$data"/*-ham-*
