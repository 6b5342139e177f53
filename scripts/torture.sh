#!/usr/bin/env bash
# Takes the promises and the known gaps of docs/reliability.md to the test at every point, and prints the figures.
# The suite runs a short form of the same.
#   scripts/torture.sh                all sections
#   scripts/torture.sh SECTION...     these: death (minutes), failure (minutes)
# As root, `failure` also fills a small disk; it leaves that out, and says so, for everybody else.
set -euo pipefail
cd "$(dirname "$0")/.."

build() { # TARGET...
    cmake --preset release >/dev/null
    cmake --build --preset release --target "$@"
}

# A process is killed at each change of the file system.
section_death() {
    build torture_test
    TORTURE_STRIDE=1 build/release/bin/torture_test --gtest_filter='*_death.*:two_engines.*'
}

# Each change of the file system fails; the disk is full.
section_failure() {
    build torture_test
    TORTURE_STRIDE=1 build/release/bin/torture_test --gtest_filter='*_failure.*:full_disk.*'
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
