#!/usr/bin/env bash
# The rules of the house that a search can check. Needs nothing but git.
set -euo pipefail
cd "$(dirname "$0")/.."

failed=0
# Only the platform layer may know which system it is on; the one word about symbols stands in the client.
if git grep -nE '^#(if|ifdef|ifndef|elif)' -- 'src/**.h' 'src/**.cpp' 'client/**.cpp' 'tools/' ':!src/platform'; then
    echo "check-rules.sh: conditionals above the platform layer" >&2
    failed=1
fi
if git grep -nE '#include <(sys/|unistd|fcntl|windows)' -- src client tools ':!src/platform'; then
    echo "check-rules.sh: system headers above the platform layer" >&2
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
            print "check-rules.sh: " $1 " includes " $2; bad = 1
        }
        END { exit bad || !NR }' >&2 || failed=1
exit "$failed"
