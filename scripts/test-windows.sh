#!/usr/bin/env bash
# Installs what is missing, builds for Windows, and runs that build's tests under Wine, in a prefix that goes with them.
# One of the tests runs both builds on the same files; for it the native programs are built as well.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh --windows
cmake --preset release >/dev/null
cmake --build --preset release --target interchange_test
cmake --preset windows -DTESSIVAR_NATIVE_BIN="$PWD/build/release/bin" >/dev/null
cmake --build --preset windows

TESSIVAR_WINE_PREFIX=$(mktemp -d)
export TESSIVAR_WINE_PREFIX
trap 'scripts/wine.sh --end; rm -rf "$TESSIVAR_WINE_PREFIX"' EXIT
scripts/wine.sh --begin
scripts/run-ctest.sh windows || { tail -n 50 "$TESSIVAR_WINE_PREFIX/errors" >&2; exit 8; }
