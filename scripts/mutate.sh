#!/usr/bin/env bash
# Plants faults in one folder, one at a time, and counts those that the folder's own tests catch.
#   scripts/mutate.sh FOLDER [NUMBER] [SEED]    src/dict, client, ...; 20 faults by seed 1
# A fault changes one line: another comparison, a constant off by one, a call left out, a condition turned round.
# What doesn't compile isn't counted. Survivors are shown as they stand; some of them change nothing that matters.
# Works on a copy of the tree in build/mutate, with the tests of tests/FOLDER, in the release preset.
set -euo pipefail
cd "$(dirname "$0")/.."
folder=${1:?a folder of src, or client} number=${2:-20} seed=${3:-1}
tests=tests/${folder#src/}
[ -d "$tests" ] || { echo "mutate.sh: there is no $tests" >&2 && exit 2; }

tree=build/mutate log=build/mutate/build/log
mkdir -p "$tree/build"
git ls-files -z | xargs -0 cp --parents -t "$tree"
(cd "$tree" && cmake --preset release >/dev/null)
passes() { # builds the tests, and runs them
    cmake --build "$tree/build/release" --target "$tests/all" >"$log" 2>&1 || return 2
    timeout 600 ctest --test-dir "$tree/build/release/$tests" --parallel "$(nproc)" --timeout 60 --stop-on-failure \
        >"$log" 2>&1
}
passes || { tail -30 "$log" >&2 && echo "mutate.sh: the tests fail without a fault" >&2 && exit 1; }

# Prints the faults in random order: file, number of the line, and the line with the fault.
faults() {
    python3 - "$folder" "$seed" <<'EOF'
import glob, random, re, sys
folder, seed = sys.argv[1:]
other = {"==": "!=", "!=": "==", "<": "<=", "<=": "<", ">": ">=", ">=": ">", "&&": "||", "||": "&&"}
found = []
for path in sorted(glob.glob(folder + "/*.cpp")):
    for number, line in enumerate(open(path, encoding="utf-8"), 1):
        line = line.rstrip("\n")
        code = re.sub(r'"(?:[^"\\]|\\.)*"|\'(?:[^\'\\]|\\.)+\'', lambda m: "." * len(m[0]), line.split("//")[0])
        if re.match(r"\s*(#|TVR_LOG|static_assert|template|using|case\b|\})", code):
            continue
        def add(start, end, text):
            found.append((path, number, line[:start] + text + line[end:]))
        for m in re.finditer(r"(?<= )(==|!=|<=?|>=?|&&|\|\|)(?= )", code):
            add(*m.span(), other[m[0]])
        for m in re.finditer(r"(?<![\w.'])(0[xX][0-9A-Fa-f]+|\d+)(?=[uUlL]*\b)(?![.'\w])", code):
            add(*m.span(), hex(int(m[0], 16) + 1) if "x" in m[0].lower() else str(int(m[0]) + 1))
        for m in re.finditer(r"^(\s+)[\w:.>-]+\(.*\);$", code):
            if not re.match(r"\s*(return|delete|throw)\b", code):
                add(len(m[1]), len(line), ";")
        for m in re.finditer(r"\bif \((.+)\)( \{)?$", code):
            if ";" not in m[1] and m[1].count("(") == m[1].count(")"):
                add(*m.span(1), "!(" + line[m.start(1):m.end(1)] + ")")
random.Random(int(seed)).shuffle(found)
for fault in found:
    print(*fault, sep="\t")
EOF
}

caught=0 tried=0
while [ "$tried" -lt "$number" ] && IFS=$'\t' read -r -u 3 file line text; do
    cp -p "$tree/$file" build/mutate/build/sound
    FAULT=$text awk -v at="$line" 'NR == at { print ENVIRON["FAULT"]; next } { print }' build/mutate/build/sound >"$tree/$file"
    code=0
    passes || code=$?
    cp build/mutate/build/sound "$tree/$file" # now, so that it is built again
    [ "$code" != 2 ] || continue
    tried=$((tried + 1))
    if [ "$code" = 0 ]; then
        echo "survives: $file:$line:$text"
    else
        caught=$((caught + 1))
    fi
done 3< <(faults)
echo "$folder: $caught of $tried faults caught (seed $seed)"
