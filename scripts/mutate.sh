#!/usr/bin/env bash
# Plants faults in src and client, one at a time, and counts those that the tests of their folder catch.
#   scripts/mutate.sh [NUMBER [SEED [FOLDER...]]]    100 faults by seed 1 in all folders
# A fault changes one line: another comparison, a constant off by one, a call left out, a condition turned round.
# What doesn't compile isn't counted. A fault is caught if a test fails twice. Survivors are shown as they stand; some
# of them change nothing that matters. Works on a copy of the tree in build/mutate, in the release preset, and writes
# all results to build/mutate/build/results. JOBS: how many compilers and tests at a time. LEAVE_OUT: a pattern of tests
# that are too slow.
set -euo pipefail
cd "$(dirname "$0")/.."
number=${1:-100} seed=${2:-1} jobs=${JOBS:-$(nproc)}
folders=("${@:3}")
[ "${#folders[@]}" -gt 0 ] || folders=(src client)

tree=build/mutate log=build/mutate/build/log sound=build/mutate/build/sound
rm -rf "$tree"/{src,client,tools,tests}
mkdir -p "$tree/build"
git ls-files -z | xargs -0 cp --parents -t "$tree"
(cd "$tree" && cmake --preset release >/dev/null)

# The nearest folder of tests for a source.
tests_of() {
    local folder=tests/${1#src/}
    while [ ! -e "$folder/CMakeLists.txt" ]; do folder=${folder%/*}; done
    echo "$folder"
}
passes() { # FOLDER of tests: builds them, and runs them; 1: a test fails, 2: not built
    if ! cmake --build "$tree/build/release" -j "$jobs" --target "$1/all" >"$log" 2>&1; then
        grep -q 'Error running test executable' "$log" && return 1 # it dies when it is asked for its tests
        return 2
    fi
    (
        # A fault may take all memory; the tests of the platform reserve a lot of it.
        [ "$1" = tests/platform ] || ulimit -v 8000000
        timeout 900 ctest --test-dir "$tree/build/release/$1" --parallel "$jobs" --stop-on-failure \
            --repeat until-pass:2 --exclude-regex "${LEAVE_OUT:-^$}"
    ) >"$log" 2>&1 || return 1
}

# Prints the faults in random order: file, number of the line, and the line with the fault.
faults() {
    git ls-files -- "${folders[@]/%//*.cpp}" ':!*/win32/*' | python3 -c '
import random, re, sys
other = {"==": "!=", "!=": "==", "<": "<=", "<=": "<", ">": ">=", ">=": ">", "&&": "||", "||": "&&"}
found = []
for path in sorted(sys.stdin.read().split()):
    for number, line in enumerate(open(path, encoding="utf-8"), 1):
        line = line.rstrip("\n")
        code = re.sub(r"""L?"(?:[^"\\]|\\.)*"|\x27(?:[^\x27\\]|\\.)+\x27""", lambda m: "." * len(m[0]), line.split("//")[0])
        if re.match(r"\s*(#|TVR_LOG|static_assert|template|using|case\b|\})", code):
            continue
        def add(start, end, text):
            found.append((path, number, line[:start] + text + line[end:]))
        for m in re.finditer(r"(?<= )(==|!=|<=?|>=?|&&|\|\|)(?= )", code):
            add(*m.span(), other[m[0]])
        for m in re.finditer(r"(?<![\w.])(0[xX][0-9A-Fa-f]+|\d+)(?=[uUlL]*\b)(?![.\w])", code):
            add(*m.span(), hex(int(m[0], 16) + 1) if "x" in m[0].lower() else str(int(m[0]) + 1))
        for m in re.finditer(r"^(\s+)[\w:.>-]+\(.*\);$", code):
            if not re.match(r"\s*(return|delete|throw)\b", code):
                add(len(m[1]), len(line), ";")
        for m in re.finditer(r"\bif \((.+)\)( \{)?$", code):
            if ";" not in m[1] and m[1].count("(") == m[1].count(")"):
                add(*m.span(1), "!(" + line[m.start(1):m.end(1)] + ")")
random.Random(int(sys.argv[1])).shuffle(found)
for fault in found:
    print(*fault, sep="\t")
' "$seed"
}

faults >build/mutate/build/faults
: >"$tree/build/results"
declare -A passed
caught=0 tried=0 unbuilt=0
while [ "$tried" -lt "$number" ] && IFS= read -r -u 3 fault; do
    file=${fault%%$'\t'*} rest=${fault#*$'\t'}
    line=${rest%%$'\t'*} text=${rest#*$'\t'}
    tests=$(tests_of "$file")
    if [ -z "${passed[$tests]:-}" ]; then
        passes "$tests" || { tail -30 "$log" >&2 && echo "mutate.sh: $tests fail without a fault" >&2 && exit 1; }
        passed[$tests]=yes
    fi
    cp -p "$tree/$file" "$sound"
    FAULT=$text awk -v at="$line" 'NR == at { print ENVIRON["FAULT"]; next } { print }' "$sound" >"$tree/$file"
    code=0
    passes "$tests" || code=$?
    cp "$sound" "$tree/$file" # with the time of now, so that it is built again
    printf '%s\t%s\n' "$code" "$fault" >>"$tree/build/results"
    case "$code" in
    0) echo "survives: $file:$line: $(sed -n "${line}s/^ *//p" "$sound")  ->  ${text#"${text%%[! ]*}"}" ;;
    1) caught=$((caught + 1)) ;;
    2) unbuilt=$((unbuilt + 1)) && continue ;;
    esac
    tried=$((tried + 1))
    [ "$((tried % 10))" -ne 0 ] || echo "$tried faults, $caught caught"
done 3<build/mutate/build/faults
echo "$caught of $tried faults caught; $unbuilt didn't compile (seed $seed)"
