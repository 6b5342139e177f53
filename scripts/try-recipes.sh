#!/usr/bin/env bash
# Runs the recipes of docs/mail.md with the real mail programs, in a throw-away home: delivers real spam and ham
# through each, checks where every message has landed and that only the verdict's line was added, and breaks the
# filter on purpose.
#   scripts/try-recipes.sh               installs the mail programs, builds, and tries everything
#   scripts/try-recipes.sh --here BIN    installs and builds nothing: takes the programs of the folder BIN and the
#                                        mail programs that are there, and delivers some of the mail only; exit
#                                        code 77 if nothing can be tried
# Needs root, or a system that lets a user have a mount namespace.
set -euo pipefail
cd "$(dirname "$0")/.."
project=$PWD

# --- outside: what is needed, and a world in which the home, /etc/dovecot and /usr/local/bin are throw-away

if [ "${1:-}" != --inside ]; then
    if [ "${1:-}" = --here ]; then
        programs=$(cd "$2" && pwd)
        give_up=77
        each=8
    else
        scripts/install-deps.sh --mail
        cmake --preset release >/dev/null
        cmake --build --preset release --target tvr_srv tvrctl
        programs=$project/build/release/bin
        give_up=1
        each=1
    fi
    if [ "$(id -u)" -eq 0 ]; then
        user=nobody
        enter=(unshare --mount)
        become=(setpriv --reuid=nobody --regid=nogroup --clear-groups)
    else
        user=$(id -un)
        enter=(unshare --user --mount --map-current-user --keep-caps)
        become=(setpriv --ambient-caps=-all --inh-caps=-all)
    fi
    "${enter[@]}" true 2>/dev/null || { echo "try-recipes.sh: no mount namespace can be had" >&2; exit "$give_up"; }
    world=$(mktemp -d)
    trap 'rm -rf "$world"' EXIT
    chmod 755 "$world"
    mkdir -p "$world"/{home,bin,dovecot,state,project}
    cp "$programs"/tvrctl "$programs"/tvr_srv "$world/bin"
    cp -r docs scripts "$world/project"
    mkdir "$world/project/tests"
    cp -r tests/mail "$world/project/tests"
    getent passwd | awk -F: -v OFS=: -v user="$user" -v home="$world/home" \
        '$1 == user { $6 = home; $7 = "/bin/sh" } { print }' > "$world/passwd"
    [ "$(id -u)" -ne 0 ] || chown -R nobody:nogroup "$world"
    status=0
    "${enter[@]}" bash -c '
        set -e
        mkdir -p /etc/dovecot 2>/dev/null || true
        mount --bind "$1/passwd" /etc/passwd
        mount --bind "$1/bin" /usr/local/bin
        if [ -d /etc/dovecot ]; then mount --bind "$1/dovecot" /etc/dovecot; fi
        world=$1; user=$2; each=$3; shift 3
        exec "$@" env -i HOME="$world/home" USER="$user" PATH=/usr/local/bin:/usr/bin:/bin LC_ALL=C.UTF-8 \
            bash "$world/project/scripts/try-recipes.sh" --inside "$world" "$each"' \
        enter "$world" "$user" "$each" "${become[@]}" || status=$?
    exit "$status"
fi

# --- inside

world=$2
each=$3 # every so manieth message is delivered
inbox=$HOME/Maildir
spam=$inbox/.Spam
failures=0
tried=0

finish() {
    [ -z "${watch:-}" ] || kill "$watch" 2>/dev/null || true
    "$world/bin/tvrctl" stop >/dev/null 2>&1 || true
}
trap finish EXIT

wrong() {
    failures=$((failures + 1))
    [ "$failures" -gt 10 ] || echo "  WRONG: $*"
}

# Writes a file of docs/mail.md to its place.
take_file() {
    local target=${1/#\~/$HOME}
    mkdir -p "$(dirname "$target")"
    awk -v name="$1" '
        index($0, "<!-- file: " name " ") == 1 { found = 1; next }
        found && /^```/ { if (inside) exit; inside = 1; next }
        inside { print }' docs/mail.md > "$target"
    [ -s "$target" ] || { echo "try-recipes.sh: docs/mail.md has no $1" >&2; exit 1; }
    if grep -qF "<!-- file: $1 (executable)" docs/mail.md; then chmod 755 "$target"; else chmod 600 "$target"; fi
}

empty_maildir() {
    rm -rf "$inbox"
    mkdir -p "$inbox"/{new,cur,tmp} "$spam"/{new,cur,tmp}
}
messages_in() {
    find "$1/new" "$1/cur" -type f
}
count_in() {
    messages_in "$1" | wc -l
}
# True if the first file is the second one and an X-Tessivar line in its header; without a verdict, the same.
is_unchanged() {
    awk -v verdict="$3" '
        !body && /^X-Tessivar: [a-z]+, score=[0-9.]+\r?$/ { seen++; if (verdict != "") next }
        !body && /^\r?$/ { body = 1 }
        { print }
        END { exit seen == (verdict != "" ? 1 : 0) ? 0 : 1 }' "$1" | cmp -s - "$2"
}

# check NAME MAIL VERDICT: one message has been delivered, to the right place, and whole.
check() {
    local where=$inbox
    [ "$3" = spam ] && where=$spam
    if [ "$(count_in "$inbox") $(count_in "$spam")" != "$([ "$3" = spam ] && echo 0 1 || echo 1 0)" ]; then
        wrong "$(basename "$2") ($3): $(count_in "$inbox") in the inbox, $(count_in "$spam") in Spam"
    elif ! is_unchanged "$(messages_in "$where")" "$2" "$3"; then
        wrong "$(basename "$2") ($3): changed on its way"
    else
        return 0
    fi
    return 1
}

# The filter as it is; without a base; gone; dying after some bytes. Each of them from a fresh folder.
try_delivery() {
    local name=$1 mail verdict code good=0 in_spam=0 in_inbox=0
    shift
    tried=$((tried + 1))
    echo "$name"
    for mail in "${!verdicts[@]}"; do
        verdict=${verdicts[$mail]}
        empty_maildir
        code=0
        "$@" < "$mail" >>"$HOME/output" 2>&1 || code=$?
        [ "$code" -eq 0 ] || wrong "$(basename "$mail"): exit code $code"
        check "$name" "$mail" "$verdict" || continue
        good=$((good + 1))
        if [ "$verdict" = spam ]; then in_spam=$((in_spam + 1)); else in_inbox=$((in_inbox + 1)); fi
    done
    echo "  $good of ${#verdicts[@]} messages as they should be: $in_spam in Spam, $in_inbox in the inbox," \
        "all bytes but the X-Tessivar line unchanged"

    local broken
    for broken in "without a base" "without the program" "dying half-way"; do
        case "$broken" in
        "without a base") mv "$base" "$base.away" ;;
        *) mv "$world/bin/tvrctl" "$world/bin/tvrctl.away" ;;&
        "dying half-way")
            printf '#!/bin/sh\nhead -c 100\nkill -9 $$\n' > "$world/bin/tvrctl"
            chmod 755 "$world/bin/tvrctl"
            ;;
        esac
        good=0
        for mail in "$one_spam" "$one_ham"; do
            empty_maildir
            code=0
            "$@" < "$mail" >>"$HOME/output" 2>&1 || code=$?
            [ "$code" -eq 0 ] || wrong "$broken: exit code $code"
            check "$name" "$mail" "" && good=$((good + 1))
        done
        echo "  $broken: $good of 2 messages in the inbox, as they were"
        case "$broken" in
        "without a base") mv "$base.away" "$base" ;;
        *) mv "$world/bin/tvrctl.away" "$world/bin/tvrctl" ;;
        esac
    done
}

# The records that wait: "spam", "ham" or "deleted", and the message ID, one a line.
records() {
    if [ -e "$cache" ]; then
        tvrctl inspect --json --all "$cache" | grep -o '"id":"[^"]*","spam":[a-z]*,"deleted":[a-z]*' |
            sed -E 's/^"id":"(.*)","spam":([a-z]*),"deleted":([a-z]*)$/\3 \2 \1/; s/^true [a-z]*/deleted/;
                    s/^false true/spam/; s/^false false/ham/'
    fi
}

# wait_for WHAT CONDITION [$2 OF THE CONDITION]
wait_for() {
    local what=$1 condition=$2 left=600
    set -- "$1" "${3:-}"
    until eval "$condition"; do
        left=$((left - 1))
        [ "$left" -gt 0 ] || { wrong "waited in vain for: $what"; return 1; }
        sleep 0.1
    done
}

cd "$world/project"
take_file "~/.procmailrc"
take_file "~/.mailfilter"
take_file "~/.dovecot.sieve"

# A mail server hands messages over without the line that begins them in an mbox.
mkdir "$HOME/mail"
for kind in spam ham; do
    for mail in tests/mail/$kind/*; do
        sed '1{/^From /d}' "$mail" > "$HOME/mail/$kind-$(basename "$mail")"
    done
done
# What waits is to stay until it has been looked at.
mkdir "$world/state/root"
tvrctl config root "$world/state/root" >/dev/null
tvrctl config set "training delay" 3600 >/dev/null
tvrctl config set "train corrections" 0 >/dev/null
tvrctl train -q --wait --spam "$HOME"/mail/spam-* --ham "$HOME"/mail/ham-* | sed -n 1,2p
base=$(find "$HOME" -name cashe.rgd)
cache=$(dirname "$base")/transact/autotrain.bys

# What should come of each message.
declare -A verdicts
for mail in $(printf '%s\n' "$HOME"/mail/* | awk -v each="$each" 'NR % each == 0'); do
    code=0
    tvrctl score "$mail" >/dev/null || code=$?
    verdicts[$mail]=$(printf 'spam\nham\nunsure\n' | sed -n "$((code + 1))p")
done
one_spam=$(for mail in "${!verdicts[@]}"; do [ "${verdicts[$mail]}" != spam ] || echo "$mail"; done | sort | head -1)
one_ham=$(for mail in "${!verdicts[@]}"; do [ "${verdicts[$mail]}" != ham ] || echo "$mail"; done | sort | head -1)
[ -n "$one_spam" ] && [ -n "$one_ham" ] || { echo "try-recipes.sh: the mail has no clear verdicts" >&2; exit 1; }

if command -v procmail >/dev/null; then
    try_delivery "$(procmail -v 2>&1 | head -1 | cut -d' ' -f1-2)" procmail
fi
if command -v maildrop >/dev/null; then
    try_delivery "$(maildrop -v | head -1 | cut -d' ' -f1-2)" maildrop
fi

if [ -x /usr/lib/dovecot/dovecot-lda ] && [ -d /etc/dovecot ] && command -v sievec >/dev/null; then
    user=$(id -un)
    mkdir -p "$world/state/base"
    cat > /etc/dovecot/dovecot.conf <<CONF
base_dir = $world/state/base
state_dir = $world/state
log_path = $world/state/log
ssl = no
first_valid_uid = 1
mail_home = $HOME
mail_location = maildir:~/Maildir
postmaster_address = postmaster@localhost
hostname = localhost
namespace inbox {
  inbox = yes
  mailbox Spam {
    special_use = \\Junk
  }
}
!include conf.d/*.conf
CONF
    for file in /etc/dovecot/conf.d/91-tessivar-delivery.conf /etc/dovecot/tessivar/filter/tessivar; do
        take_file "$file"
    done
    imap_files="/etc/dovecot/conf.d/92-tessivar-imap.conf /etc/dovecot/tessivar/learn-spam.sieve
        /etc/dovecot/tessivar/learn-ham.sieve /etc/dovecot/tessivar/pipe/tessivar"
    try_delivery "dovecot-lda $(/usr/sbin/dovecot --version | cut -d' ' -f1), Sieve" /usr/lib/dovecot/dovecot-lda
fi
# imap COMMAND...: one session of the user, who is logged in already.
imap() {
    local number=0 line
    for line in "$@" LOGOUT; do
        number=$((number + 1))
        printf 'a%d %s\r\n' "$number" "$line"
    done | /usr/lib/dovecot/imap >"$HOME/imap.log" 2>>"$HOME/output" || true
    [ "$(grep -c '^a[0-9]* OK' "$HOME/imap.log")" -eq $(($# + 1)) ] || wrong "IMAP: $(tr -d '\r' <"$HOME/imap.log")"
}

# expect WHAT RECORDS: these are the records that wait, after a while.
expect() {
    if wait_for "$1" '[ "$(records)" = "$2" ]' "$2"; then
        echo "  $1: $(echo "$2" | sed 's/ .*//' | paste -sd, -)"
    else
        echo "  found: $(records)"
    fi
}

train_now() {
    tvrctl force >/dev/null
    wait_for "the training" '[ ! -e "$cache" ] && [ -z "$(find "$(dirname "$cache")" -name prepared.txt)" ]'
}

if [ -x /usr/lib/dovecot/imap ] && [ -d /etc/dovecot/conf.d ]; then
    tried=$((tried + 1))
    echo "tvrctl watch and IMAP"
    empty_maildir
    tvrctl watch "$inbox" "$spam" >"$HOME/watch.log" 2>&1 &
    watch=$!
    wait_for "the watch" 'grep -q watching "$HOME/watch.log"'
    # Another message than any that is learned already.
    sed '0,/^message-id: *</I s//&new./' "$one_ham" > "$HOME/new_ham"
    /usr/lib/dovecot/dovecot-lda < "$HOME/new_ham"
    wait_for "the first record" '[ -n "$(records)" ]'
    id=$(records | sed 's/^[a-z]* //')
    expect "delivered to the inbox" "ham $id"
    imap "SELECT INBOX" "STORE 1 +FLAGS (\\Seen \\Flagged)"
    imap "SELECT INBOX" "MOVE 1 Spam"
    expect "read, flagged and moved to Spam" "spam $id"
    imap "SELECT Spam" "MOVE 1 INBOX"
    expect "moved back" "deleted $id"$'\n'"ham $id"
    train_now
    imap "SELECT INBOX" "MOVE 1 Spam"
    expect "moved to Spam after the training" "spam $id"
    kill "$watch"
    code=0
    wait "$watch" || code=$?
    [ "$code" -eq 0 ] || wrong "the watch ended with $code"
    watch=
    [ "$(grep -c '^learned\|^re-marked\|^trained' "$HOME/watch.log")" -eq 4 ] || wrong "the watch said: $(cat "$HOME/watch.log")"
    train_now

    echo "IMAP alone: imapsieve"
    for file in $imap_files; do
        take_file "$file"
    done
    sievec /etc/dovecot/tessivar >>"$HOME/output" 2>&1 || wrong "sievec: exit code $?"
    imap "SELECT Spam" "MOVE 1 INBOX"
    expect "moved out of Spam" "ham $id"
    imap "SELECT INBOX" "MOVE 1 Spam"
    expect "moved to Spam" "spam $id"
    tvrctl config set "train corrections" 1 >/dev/null
    imap "SELECT Spam" "MOVE 1 INBOX"
    wait_for "the training" '[ ! -e "$cache" ]'
    echo "  a correction is trained at once"
fi
[ "$tried" -gt 0 ] || { echo "try-recipes.sh: no mail program is there"; exit 77; }

if [ "$failures" -ne 0 ]; then
    echo "$failures checks failed. What the mail programs said last:"
    tail -n 8 "$HOME/output" "$world/state/log" 2>/dev/null || true
    exit 1
fi
echo "All as it should be."
