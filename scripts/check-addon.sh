#!/usr/bin/env bash
# Checks the add-on with eslint and addons-linter of the npm registry, which are installed in build/npm. Exit code 77 if they
# isn't available. The linter knows the browser, not Thunderbird: what it warns of are the permissions of mail, which
# Thunderbird itself takes, and a property that is younger than the linter.
set -euo pipefail
cd "$(dirname "$0")/.."
tools=build/npm/node_modules/.bin
if [ ! -x $tools/addons-linter ] || [ ! -x $tools/eslint ]; then
    command -v npm >/dev/null &&
        timeout 120 npm install --prefix build/npm --no-audit --no-fund --silent --fetch-retries=0 eslint@9 addons-linter@7 || {
        echo "check-addon.sh: not checked, as eslint and addons-linter aren't available from the npm registry" >&2
        exit 77
    }
fi
$tools/eslint -c tests/addon/eslint.config.mjs addon tests/addon
report=$($tools/addons-linter --output json "$(scripts/make-addon.sh build)") || true # its code tells of warnings, too
node - "$report" <<'END'
const { errors, warnings } = JSON.parse(process.argv[2]);
const known = new Set(["MANIFEST_PERMISSIONS", "MANIFEST_OPTIONAL_PERMISSIONS",
  "DATA_COLLECTION_PERMISSIONS_PROP_RESERVED", "KEY_FIREFOX_ANDROID_UNSUPPORTED_BY_MIN_VERSION"]);
const all = [...errors, ...warnings];
const faults = all.filter(({ code }) => !known.has(code));
faults.forEach(({ code, message, file }) => console.error(code, file ?? "", message));
console.log(`${faults.length} faults, ${all.length - faults.length} remarks of the kinds that were to be expected`);
process.exit(faults.length ? 1 : 0);
END
