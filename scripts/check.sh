#!/usr/bin/env bash
# What the compiler doesn't tell: the format of all sources, a build with clang++, clang-tidy, and the rules of
# the house. A file named as an argument is the only one that clang-tidy looks at.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh --dev
scripts/format.sh --check
cmake -S . -B build/clang -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_COMPILER=clang++ -DTESSIVAR_WERROR=ON >/dev/null
cmake --build build/clang

scripts/check-rules.sh && failed=0 || failed=1

files=("$@")
[ "${#files[@]}" -gt 0 ] || mapfile -t files < <(git ls-files 'src/*.cpp' 'client/*.cpp' 'tools/*.cpp')
printf '%s\n' "${files[@]}" | xargs -P "$(nproc)" -n 4 clang-tidy -p build/clang --quiet 2>/dev/null || failed=1
exit "$failed"
