#!/usr/bin/env bash
# Runs the tests of a preset that is built. The tests start hundreds of real processes: one that fails is run once more.
# Those that passed at the second try only are named at the end, in front of CTest's closing lines, together with those
# of earlier runs that build/second-try still has.
#   scripts/run-ctest.sh PRESET [OPTION...]    options of ctest
set -euo pipefail
cd "$(dirname "$0")/.."
preset=$1
shift

log=build/$preset/ctest.log code=0
ctest --preset "$preset" --parallel "$(nproc)" --repeat until-pass:2 "$@" 2>&1 | tee "$log" || code=$?
awk -v preset="$preset" '
    match($0, /Test +#[0-9]+: [^ ]+/) { name = substr($0, RSTART, RLENGTH); sub(/.*: /, "", name) }
    RSTART && /\*\*\*/ { failed[name] = 1 }
    RSTART && / Passed / && failed[name] { print preset ": " name }' "$log" >>build/second-try
if [ -s build/second-try ]; then
    echo "Passed at the second try only:"
    sed 's/^/    /' build/second-try
fi
grep -E '^[0-9]+% tests passed|^Total Test time' "$log" || true
exit "$code"
