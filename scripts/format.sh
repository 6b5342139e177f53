#!/usr/bin/env bash
# Formats every source file in place; with --check only tells which ones differ.
set -euo pipefail
cd "$(dirname "$0")/.."
mode=(-i)
[ "${1:-}" != --check ] || mode=(--dry-run --Werror)
git ls-files -z '*.h' '*.cpp' | xargs -0 clang-format "${mode[@]}"
