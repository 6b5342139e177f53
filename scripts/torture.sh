#!/usr/bin/env bash
# Takes the promises and the known gaps of docs/reliability.md to the test at every point, and prints the figures.
# The suite runs a short form of the same.
#   scripts/torture.sh                all sections
#   scripts/torture.sh SECTION...     these: death (minutes), power (minutes), failure (minutes), crowd (a quarter of
#                                     an hour), long (minutes; writes docs/long-life.svg again), foreign (a minute),
#                                     fuzz (two hours)
# As root, `failure` also fills a small disk; it leaves that out, and says so, for everybody else.
set -euo pipefail
cd "$(dirname "$0")/.."

build() { # TARGET...
    cmake --preset release >/dev/null
    cmake --build --preset release --target "$@"
}

# A process is killed at each change of the file system; those of tvrctl fail as well.
section_death() {
    build torture_test
    TORTURE_STRIDE=1 build/release/bin/torture_test --gtest_filter='*_death.*:two_engines.*'
}

# The power goes at each change of the file system, and each time something is brought to the disk.
section_power() {
    build torture_test
    TORTURE_ONLY=power TORTURE_STRIDE=1 build/release/bin/torture_test --gtest_filter='*_death.*:*_power_cut.*'
}

# Each change of the file system fails; the disk is full.
section_failure() {
    build torture_test
    TORTURE_STRIDE=1 build/release/bin/torture_test --gtest_filter='*_failure.*:small_disk.*'
}

# Many clients beside an engine that is killed at random: ten minutes, and a minute under the thread sanitizer.
section_crowd() {
    build load_test tvr_srv tvr_ipc
    CROWD_SECONDS=600 build/release/bin/load_test --gtest_filter='crowd.*'
    cmake --preset tsan >/dev/null
    cmake --build --preset tsan --target load_test tvr_srv tvr_ipc
    local reports=$PWD/build/tsan/crowd-reports
    rm -rf "$reports"
    mkdir -p "$reports"
    CROWD_SECONDS=60 TSAN_OPTIONS="ignore_noninstrumented_modules=1 log_path=$reports/of" \
        build/tsan/bin/load_test --gtest_filter='crowd.every*'
    if [ -n "$(ls -A "$reports")" ]; then
        head -n 60 "$reports"/* >&2
        return 1
    fi
    echo "thread sanitizer: no report"
}

# Three years of mail in 1000 transactions of one engine.
section_long() {
    build tvr_long_life
    build/release/bin/tvr_long_life 1000 build/release/long-life.csv
    scripts/long-life.py build/release/long-life.csv docs/long-life.svg
}

# Another user of the machine, and what he plants. As root.
section_foreign() {
    build foreign_test
    build/release/bin/foreign_test
}

# Hostile files for every reader, ten minutes for each.
section_fuzz() {
    scripts/fuzz.sh
}

if [ "$#" -eq 0 ]; then
    mapfile -t all < <(declare -F | sed -n 's/^declare -f section_//p')
    set -- "${all[@]}"
fi
for section in "$@"; do
    declare -F "section_$section" >/dev/null || { echo "torture.sh: unknown section $section" >&2; exit 2; }
done
for section in "$@"; do
    echo "== $section"
    "section_$section"
done
