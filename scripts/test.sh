#!/usr/bin/env bash
# Installs what is missing, builds a preset (release unless one is named) and runs its tests.
set -euo pipefail
cd "$(dirname "$0")/.."
preset=${1:-release}

scripts/install-deps.sh
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset"
# The tests start hundreds of real processes: one that fails is run once more, and both runs are shown.
ctest --preset "$preset" --parallel "$(nproc)" --repeat until-pass:2
