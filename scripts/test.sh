#!/usr/bin/env bash
# Installs what is missing, builds a preset (release unless one is named) and runs its tests.
#   scripts/test.sh [--unit] [PRESET]    --unit: only the tests of single parts, without whole engines
set -euo pipefail
cd "$(dirname "$0")/.."
targets=() tests=()
if [ "${1:-}" = --unit ]; then
    targets=(--target unit_tests) tests=(--label-regex '^unit$')
    shift
fi
preset=${1:-release}

scripts/install-deps.sh
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset" "${targets[@]}"
scripts/run-ctest.sh "$preset" "${tests[@]}"
