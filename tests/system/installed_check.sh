#!/usr/bin/env bash
# Installs the build into a folder of its own, and builds and runs the examples from what lies there.
#   installed_check.sh BUILD_FOLDER SOURCE_FOLDER COMPILER FLAGS
set -euo pipefail
build=$1 source=$2 compiler=$3 flags=$4
scratch=$(mktemp -d)
trap '"$scratch/usr/bin/tvrctl" stop >/dev/null 2>&1 || true; rm -rf "$scratch"' EXIT
export TESSIVAR_ROOT=$scratch/root HOME=$scratch
mkdir "$TESSIVAR_ROOT"
DESTDIR=$scratch cmake --install "$build" --prefix /usr >/dev/null
pc=$(find "$scratch/usr" -name tessivar.pc)
export PKG_CONFIG_PATH=${pc%/*}

cmake -S "$source/docs/examples" -B "$scratch/learn" -DCMAKE_PREFIX_PATH="$scratch/usr" -DCMAKE_CXX_COMPILER="$compiler" \
    -DCMAKE_CXX_FLAGS="$flags" >/dev/null
cmake --build "$scratch/learn" >/dev/null
# The C++ driver links what the flags ask for.
# shellcheck disable=SC2046,SC2086
"$compiler" $flags -x c -std=c99 -Wall -Wextra -Wpedantic -Werror "$source/docs/examples/learn.c" -o "$scratch/learn_c" \
    -x none $(pkg-config --cflags --libs tessivar) -Wl,-rpath,"$(pkg-config --variable=libdir tessivar)"

# Each installed header stands alone.
find "$scratch/usr/include/tessivar" -name '*.h' | while read -r header; do
    "$compiler" -std=c++20 -fsyntax-only -Wall -Wextra -Wpedantic -Werror -I"$scratch/usr/include/tessivar" -x c++ - \
        <<<"#include \"$header\""
done
readelf -d "$scratch/learn_c" | grep 'NEEDED.*libtvr_ipc\.so\.[0-9]' >/dev/null || { echo "no SONAME with a number" >&2 && exit 1; }

export PATH=$scratch/usr/bin:$PATH
tvrctl start # registers where the examples find it
spam=("$source"/tests/mail/spam/*) ham=("$source"/tests/mail/ham/*)
"$scratch/learn/learn" --spam "${spam[@]}"
"$scratch/learn_c" --ham "${ham[@]:1}"
tvrctl train --quiet --wait --ham "${ham[0]}" # waits for all
status=$(tvrctl status)
[[ $status =~ Spam\ +${#spam[@]}\ messages && $status =~ Ham\ +${#ham[@]}\ messages ]] ||
    { echo "not all is learned: $status" >&2 && exit 1; }
