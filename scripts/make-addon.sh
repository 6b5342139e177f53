#!/usr/bin/env bash
# Zips the add-on for Thunderbird: tessivar-VERSION.xpi, the same bytes for the same files.
#   scripts/make-addon.sh [FOLDER]    where it is made; by default build/
set -euo pipefail
cd "$(dirname "$0")/.."
folder=$(realpath -m "${1:-build}")
version=$(sed -n 's/^ *"version": "\(.*\)",$/\1/p' addon/manifest.json)
made=$folder/tessivar-$version.xpi
list=$(mktemp)
trap 'rm -f "$list"' EXIT
mkdir -p "$folder"
cd addon
find . -type f ! -name README.md -printf '%P\n' | LC_ALL=C sort >"$list"
cmake -E tar cf "$made.new" --format=zip --mtime=1980-01-01 --files-from="$list"
mv "$made.new" "$made"
echo "$made"
