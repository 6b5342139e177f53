#!/usr/bin/env bash
# What many users cost one machine: an engine for each, in a root of its own, on the public corpus that scripts/demo.sh
# has fetched.
#   bench/users.sh [USERS]    200 without a word
# Each user has learned 500 messages before it begins. IDLE=60 sets the seconds that idle engines are watched, PARALLEL
# the clients at a time (two for each processor).
set -euo pipefail
cd "$(dirname "$0")/.."
users=${1:-200} idle=${IDLE:-60} parallel=${PARALLEL:-$((2 * $(nproc)))}
half=10 # messages of a kind that a training brings
cmake --preset release >/dev/null
cmake --build --preset release --target tvr_srv tvrctl >/dev/null
bin=$PWD/build/release/bin data=$PWD/build/corpus/package/data
[ -d "$data" ] || { echo "users.sh: run scripts/demo.sh first: it fetches the corpus" >&2; exit 1; }

work=$(mktemp -d)
# Runs a command for every user, several at a time; {} in it is the user's root.
each() {
    seq -f "$work/%.0f" "$users" | xargs -P "$parallel" -I{} env TESSIVAR_ROOT={} "$@" >/dev/null
}
trap 'parallel=64 each "$bin/tvrctl" stop 2>/dev/null || true; rm -rf "$work"' EXIT

mapfile -t spam < <(find "$data"/spam-* -type f | sort)
mapfile -t ham < <(find "$data"/*-ham-* -type f | sort)
# Copies the nth handful of one kind into a new folder.
deal() { # FOLDER NUMBER FILE...
    local folder=$1 first=$(($2 * half % ($# - 2 - half))) files=("${@:3}")
    mkdir -p "$folder"
    cp "${files[@]:first:half}" "$folder"
}

# One who has learned, and all others in his likeness; but everybody gets mail of his own.
TESSIVAR_ROOT=$work/1 "$bin/tvrctl" train --quiet --wait --spam "${spam[@]:0:250}" --ham "${ham[@]:0:250}" >/dev/null
TESSIVAR_ROOT=$work/1 "$bin/tvrctl" stop >/dev/null
for ((user = 1; user <= users; ++user)); do
    [ "$user" = 1 ] || cp -r "$work/1" "$work/$user"
done
for ((user = 1; user <= users; ++user)); do
    for round in 1 2; do
        deal "$work/$user/mail$round/spam" $((2 * user + round)) "${spam[@]:250}"
        deal "$work/$user/mail$round/ham" $((2 * user + round)) "${ham[@]:250}"
    done
    cp "${ham[user % ${#ham[@]}]}" "$work/$user/message"
done

processes() { # of this run's engines
    for process in $(pgrep -x tvr_srv); do
        # One may have gone meanwhile.
        if { tr '\0' '\n' <"/proc/$process/environ" | grep -q "^TESSIVAR_ROOT=$work/"; } 2>/dev/null; then echo "$process"; fi
    done
}
# Of all engines together: proportional set size and page tables (KiB), processor time (ms), times gone to sleep.
state() {
    local process
    for process in $(processes); do
        cat "/proc/$process/smaps_rollup" "/proc/$process"/task/*/schedstat
        grep ^VmPTE: "/proc/$process/status"
        grep -h ^voluntary_ctxt_switches: "/proc/$process"/task/*/status
    done | awk '/^Pss:/ { pss += $2 } /^VmPTE/ { pages += $2 } /^[0-9]+ [0-9]+ [0-9]+$/ { time += $1 / 1e6 }
        /^voluntary/ { sleeps += $2 } END { print pss + 0, pages + 0, time + 0, sleeps + 0 }'
}
row() { printf '%-52s %s\n' "$@"; }
watch_idle() { # TITLE
    local before after
    read -r -a before < <(state)
    sleep "$idle"
    read -r -a after < <(state)
    echo "$1"
    echo "${before[*]} ${after[*]} $(processes | wc -l)" | awk -v seconds="$idle" '{
        printf "  %-50s %.2f MiB\n", "proportional set size of one engine", $5 / $9 / 1024
        printf "  %-50s %.2f MiB\n", "  and its page tables", $6 / $9 / 1024
        printf "  %-50s %.1f ms\n", "processor time of one engine in an hour", ($7 - $3) / $9 / seconds * 3600
        printf "  %-50s %.1f\n", "wake-ups of one engine in a minute", ($8 - $4) / $9 / seconds * 60 }'
}
timed() { # TITLE COMMAND...
    local start end before after
    read -r -a before < <(state)
    times >"$work/before" # of all programs that have ended
    start=$(date +%s%N)
    each "${@:2}"
    end=$(date +%s%N)
    times >"$work/after"
    read -r -a after < <(state)
    row "$1" "$(sed -s -n '2s/[ms]/ /gp' "$work/before" "$work/after" | awk -v all="$users" -v time=$((end - start)) \
        -v engines="${before[2]} ${after[2]}" '{ ended[NR] = 1000 * (60 * ($1 + $3) + $2 + $4) }
        END { split(engines, ran)
              printf "%.0f a second, %.1f ms of processor time each", all / time * 1e9,
                  (ended[2] - ended[1] + ran[2] - ran[1]) / all }')"
}
train=("$bin/tvrctl" train --quiet --wait)

echo "$users users, $(nproc) processors, $parallel clients at a time"
timed "engines started" "$bin/tvrctl" start
watch_idle "Idle, not trained since their start"
timed "trainings of $((2 * half)) messages, mail to published base" "${train[@]}" --spam {}/mail1/spam --ham {}/mail1/ham
watch_idle "Idle, after a training"
parallel=64 each "$bin/tvrctl" stop --if-idle 0
row "engines that stop --if-idle 0 leaves" "$(processes | wc -l)"
timed "trainings as above, of engines that don't run yet" "${train[@]}" --spam {}/mail2/spam --ham {}/mail2/ham
# shellcheck disable=SC2016
timed "messages scored in a mail pipe, a process for each" sh -c 'exec "$0" score --filter -e <"$1"' "$bin/tvrctl" \
    {}/message
row "on disk, a user's data" "$(du -sk "$work"/*/appdata | awk '{ sum += $1 } END { printf "%.0f KiB", sum / NR }')"
