#!/usr/bin/env bash
# What the compiler doesn't tell: the format of all sources, a build with clang++, clang-tidy, and the rules of
# the house. A file named as an argument is the only one that clang-tidy looks at.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh --dev
scripts/format.sh --check
cmake -S . -B build/clang -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_COMPILER=clang++ -DTESSIVAR_WERROR=ON >/dev/null
cmake --build build/clang

failed=0
# Only the platform layer may know which system it is on; the one word about symbols stands in the client.
if git grep -nE '^#(if|ifdef|ifndef|elif)' -- 'src/**.h' 'src/**.cpp' 'client/**.cpp' 'tools/' ':!src/platform'; then
    echo "check.sh: conditionals above the platform layer" >&2
    failed=1
fi
if git grep -nE '#include <(sys/|unistd|fcntl|windows)' -- src client tools ':!src/platform/posix'; then
    echo "check.sh: system headers above the platform layer" >&2
    failed=1
fi

# A folder includes only headers of those below it in the tables of the documents, and nobody those of the server.
order=$(sed -nE 's/^\| `(src\/)?([a-z_/]+)`.*/\2/p' tools/README.md docs/architecture.md)
git grep -oE '^#include "[a-z0-9_]+/[a-z0-9_/]+\.h"' -- src client 'tools/*/*' | sed -E 's/:#include "|"$/ /g; s/^src.//' |
    awk -v order="$order" '
        BEGIN { for (i = split(order, folders, "\n"); i > 0; --i) rank[folders[i]] = i }
        function folder(path) { while (sub("/[^/]*$", "", path) && !(path in rank)); return path }
        { from = folder($1); to = folder($2) }
        !rank[from] || rank[to] < rank[from] || (to == "server" && from != to) {
            print "check.sh: " $1 " includes " $2; bad = 1
        }
        END { exit bad || !NR }' >&2 || failed=1

files=("$@")
[ "${#files[@]}" -gt 0 ] || mapfile -t files < <(git ls-files 'src/*.cpp' 'client/*.cpp' 'tools/*.cpp')
printf '%s\n' "${files[@]}" | xargs -P "$(nproc)" -n 4 clang-tidy -p build/clang --quiet 2>/dev/null || failed=1
exit "$failed"
