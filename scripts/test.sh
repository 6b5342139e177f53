#!/usr/bin/env bash
# Installs what is missing, builds a preset (release unless one is named) and runs its tests.
#   scripts/test.sh [PRESET [OPTION...]]    options of ctest
set -euo pipefail
cd "$(dirname "$0")/.."
preset=${1:-release}

scripts/install-deps.sh
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset"
scripts/run-ctest.sh "$preset" "${@:2}"
