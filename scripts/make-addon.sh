#!/usr/bin/env bash
# Zips the add-on for Thunderbird: tessivar-VERSION.xpi, the same bytes for the same files.
#   scripts/make-addon.sh [FOLDER]    where it is made; by default build/
set -euo pipefail
cd "$(dirname "$0")/.."
folder=$(realpath -m "${1:-build}")
mkdir -p "$folder"
python3 - addon "$folder" <<'END'
import json, pathlib, sys, zipfile

source, target = map(pathlib.Path, sys.argv[1:])
version = json.loads((source / "manifest.json").read_text())["version"]
made = target / f"tessivar-{version}.xpi"
beside = made.with_suffix(".new")
with zipfile.ZipFile(beside, "w") as archive:
    for file in sorted(source.rglob("*")):
        if file.is_file() and file.name != "README.md":
            entry = zipfile.ZipInfo(file.relative_to(source).as_posix(), (1980, 1, 1, 0, 0, 0))
            entry.external_attr = 0o644 << 16
            entry.compress_type = zipfile.ZIP_DEFLATED
            archive.writestr(entry, file.read_bytes())
beside.replace(made)
print(made)
END
