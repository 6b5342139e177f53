// The rules for the add-on and its tests; scripts/check-addon.sh asks for them.

const names = `Blob TextDecoder TextEncoder URL atob btoa clearTimeout console document globalThis messenger queueMicrotask scrollTo
  setImmediate setTimeout structuredClone window`;

export default [
  {
    files: ["**/*.mjs"],
    languageOptions: {
      ecmaVersion: 2024,
      sourceType: "module",
      globals: Object.fromEntries(names.split(/\s+/).map(name => [name, "readonly"])),
    },
    rules: {
      eqeqeq: "error",
      "no-undef": "error",
      "no-unused-vars": ["error", { varsIgnorePattern: "^_", argsIgnorePattern: "^_" }],
      "no-var": "error",
      "prefer-const": "error",
    },
  },
];
