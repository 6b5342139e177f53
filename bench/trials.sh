# What the scripts that time trainings begin with; for `source`, from the project's folder, with their arguments. Builds
# the programs, and sets: bin; spam and ham, the folders of mail; work, a folder that goes at the end, with the root of an
# engine that is stopped then.
scripts/install-deps.sh --dev
cmake --preset release >/dev/null
cmake --build --preset release --target tvr_srv tvrctl >/dev/null
bin=$PWD/build/release/bin

spam=() ham=() list=
for argument in "$@"; do
    case "$argument" in
    --spam|--ham) list=$argument ;;
    *) if [ "$list" = --spam ]; then spam+=("$argument"); else ham+=("$argument"); fi ;;
    esac
done
if [ "$#" -eq 0 ]; then
    data=build/corpus/package/data
    [ -d "$data" ] || { echo "$(basename "$0"): run scripts/demo.sh first: it fetches the corpus" >&2; exit 1; }
    spam=("$data"/spam-*) ham=("$data"/*-ham-*)
fi

work=$(mktemp -d)
export TESSIVAR_ROOT=$work/root
trap '"$bin/tvrctl" stop >/dev/null 2>&1 || true; rm -rf "$work"' EXIT

median() { sort -n "$1" | awk '{ all[NR] = $1 } END { print all[int((NR + 1) / 2)] }'; }
