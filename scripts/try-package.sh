#!/usr/bin/env bash
# Builds the Debian package, looks it over, installs it on this machine, trains and scores with the installed
# programs in a root of their own, removes the package, and looks whether anything of it is left.
# As root, or with sudo for the installation alone.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh
as_root=()
[ "$(id -u)" -eq 0 ] || as_root=(sudo)
if dpkg-query -W -f '${Status}' tessivar 2>/dev/null | grep -q ' installed'; then
    echo "try-package.sh: the package is installed already; remove it first" >&2
    exit 2
fi

failed=0
wrong() {
    echo "WRONG: $*" >&2
    failed=1
}

echo "== Build"
build=build/package
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DTESSIVAR_TESTS=OFF -DTESSIVAR_BENCH=OFF >/dev/null
cmake --build "$build" | tail -1
rm -f "$build"/tessivar_*.deb
(cd "$build" && cpack -G DEB) | tail -1
package=$(ls "$build"/tessivar_*.deb)

echo "== Look it over"
dpkg-deb -f "$package"
for field in Package Version Architecture Maintainer Description Depends Installed-Size Section; do
    [ -n "$(dpkg-deb -f "$package" "$field")" ] || wrong "the field $field is missing"
done
depends=$(dpkg-deb -f "$package" Depends)
for library in libc6 'libstdc++6'; do # found by dpkg-shlibdeps
    [[ $depends == *"$library"* ]] || wrong "it doesn't depend on $library"
done
contents=$(dpkg-deb -c "$package")
echo "$contents"
for path in bin/tvr_srv bin/tvrctl lib/libtvr_ipc.so lib/systemd/user/tessivar.service \
    share/man/man1/tvrctl.1.gz share/man/man1/tvr_srv.1.gz share/bash-completion/completions/tvrctl \
    share/doc/tessivar/README.md share/doc/tessivar/copyright share/doc/tessivar/formats.md \
    share/tessivar/tessivar-[0-9.]*.xpi lib/mozilla/native-messaging-hosts/tessivar.json \
    lib/systemd/system/tessivar@.service lib/systemd/system/tessivar-idle.timer sbin/tessivar-stop-idle \
    share/doc/tessivar/scale.md share/doc/tessivar/mail.md include/tessivar/client/tvr_ipc_c.h; do
    grep -qE " \./usr/$path( -> .*)?\$" <<<"$contents" || wrong "usr/$path is missing"
done
! grep -vE ' \./(usr/.*|etc/|etc/tessivar/.*)?$' <<<"$contents" || wrong "files outside of /usr and /etc/tessivar"
for path in machine advanced.ini common/Orvenix/Brackenhold/tessivar.ini; do
    grep -q " ./etc/tessivar/$path\$" <<<"$contents" || wrong "etc/tessivar/$path is missing"
done
! grep -v ' root/root ' <<<"$contents" || wrong "files of another owner"
! grep -vE '^(drwxr-xr-x|-rw-r--r--|-rwxr-xr-x|l)' <<<"$contents" || wrong "odd permissions"
scratch=$(mktemp -d)
installed=0
finish() {
    if [ "$installed" = 1 ]; then
        tvrctl stop >/dev/null 2>&1 || true
        "${as_root[@]}" dpkg --purge tessivar >/dev/null || true
    fi
    rm -rf "$scratch"
}
trap finish EXIT
dpkg-deb -R "$package" "$scratch/unpacked"
(cd "$scratch/unpacked" && md5sum --quiet -c DEBIAN/md5sums) || wrong "the sums don't fit"
for file in "$scratch"/unpacked/usr/bin/* "$scratch/unpacked/usr/lib/libtvr_ipc.so"; do
    ! readelf -S "$file" | grep ' \.symtab' >/dev/null || wrong "$file isn't stripped"
    ! readelf -d "$file" | grep -E 'R(UN)?PATH' || wrong "$file looks for libraries in a folder of its own"
done
scripts/check-hardening.sh --fortify "$scratch"/unpacked/usr/bin/* "$scratch/unpacked/usr/lib/libtvr_ipc.so" ||
    wrong "it isn't hardened"
! grep -rlF "$PWD" "$scratch/unpacked" || wrong "files that name the folder they were built in"

# Whatever on this machine is named after the package.
traces() {
    "${as_root[@]}" find /usr /etc /var -xdev \( -iname '*tessivar*' -o -name 'tvrctl*' -o -name '*tvr_*' \) \
        -not -path '/var/tmp/*' | sort
}

echo "== Install"
traces >"$scratch/before"
installed=1
"${as_root[@]}" dpkg -i "$package"
[ "$(dpkg-query -W -f '${Status}' tessivar)" = "install ok installed" ] || wrong "it isn't installed"
dpkg -V tessivar || wrong "what is installed isn't what was packed"
dpkg -L tessivar >"$scratch/files"

echo "== Use"
[ "$(env -u TESSIVAR_ROOT HOME="$scratch" tvrctl config root)" = /etc/tessivar/ ] || wrong "no root is registered"
while read -r link; do
    [ -e "/usr/share/doc/tessivar/$link" ] || wrong "the README points to $link"
done < <(grep -oE '\]\([^)]+' /usr/share/doc/tessivar/README.md | cut -c3-)
mail=$PWD/tests/mail
# Nothing of the build is reached from here.
cd "$scratch"
export TESSIVAR_ROOT=$scratch/root PATH=/usr/sbin:/usr/bin:/sbin:/bin
mkdir "$TESSIVAR_ROOT"
tvrctl train --quiet --wait --spam "$mail/spam" --ham "$mail/ham" || wrong "training fails"
tvrctl status
tvrctl verify || wrong "the state is damaged"
spam=$(find "$mail/spam" -type f | sort | head -1)
ham=$(find "$mail/ham" -type f | sort | head -1)
tvrctl score "$spam" || wrong "spam isn't spam"
code=0
tvrctl score "$ham" || code=$?
[ "$code" = 1 ] || wrong "ham isn't ham"
echo "B the" >words.txt
tvr_srv /getscores "$scratch/words.txt"
cat words.out
grep -q 'B the' words.out && ! grep -q Unable words.out || wrong "the library isn't found"
if command -v man >/dev/null; then
    man -w tvrctl >/dev/null && man -w tvr_srv >/dev/null || wrong "no manual page"
fi
bash -c 'source /usr/share/bash-completion/completions/tvrctl && COMP_WORDS=(tvrctl sco) COMP_CWORD=1 &&
    _tvrctl && [ "${COMPREPLY[*]}" = score ]' || wrong "no completion"
# What it brings for Thunderbird says what the command would write.
tvrctl host --install
plain() { tr -d ' ,\n' <"$1" | fold -w1 | sort | tr -d '\n'; }
[ "$(plain root/home/.mozilla/native-messaging-hosts/tessivar.json)" = \
    "$(plain /usr/lib/mozilla/native-messaging-hosts/tessivar.json)" ] || wrong "the two manifests differ"
tvrctl stop

echo "== Remove"
"${as_root[@]}" dpkg --purge tessivar
installed=0
! dpkg-query -W -f '${Status}\n' tessivar 2>/dev/null | grep installed || wrong "it is still installed"
while read -r path; do
    # Folders that others use too may stay.
    if [ -f "$path" ] || [ -L "$path" ] || { [ -e "$path" ] && [[ $path == *tessivar* ]]; }; then
        wrong "$path is left"
    fi
done <"$scratch/files"
traces >"$scratch/after"
diff "$scratch/before" "$scratch/after" || wrong "files that weren't there before"

[ "$failed" -eq 0 ] && echo "The package is good: $package"
exit "$failed"
