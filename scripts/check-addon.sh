#!/usr/bin/env bash
# Checks the add-on with eslint and addons-linter of the npm registry; they are installed in build/npm. The linter knows the
# browser, not Thunderbird: what it warns of are the permissions of mail, which Thunderbird itself takes.
set -euo pipefail
cd "$(dirname "$0")/.."
[ -d build/npm/node_modules/addons-linter ] ||
    npm install --prefix build/npm --no-audit --no-fund --silent eslint addons-linter
build/npm/node_modules/.bin/eslint -c tests/addon/eslint.config.mjs addon tests/addon
report=$(build/npm/node_modules/.bin/addons-linter --output json "$(scripts/make-addon.sh build)")
node - "$report" <<'END'
const { errors, warnings } = JSON.parse(process.argv[2]);
const known = new Set(["MANIFEST_PERMISSIONS", "MANIFEST_OPTIONAL_PERMISSIONS", "KEY_FIREFOX_ANDROID_UNSUPPORTED_BY_MIN_VERSION"]);
const faults = [...errors, ...warnings.filter(({ code }) => !known.has(code))];
faults.forEach(({ code, message, file }) => console.error(code, file ?? "", message));
console.log(`${faults.length} faults, ${warnings.length} warnings of the kinds that were to be expected`);
process.exit(faults.length ? 1 : 0);
END
