#!/usr/bin/env bash
# Printed jobs through a private cupsd to the destinations beyond a plain
# folder, on real parts: an e-book library (calibre's calibredb), an e-reader
# volume mounted under /media (a tmpfs; a decoy volume beside it), the
# reader's e-mail through xdg-email and a registered mail handler, a sync
# folder (its link on the clipboard), a sample workflow, and an application
# (a recording desktop entry).
#   destinations.sh BUILD_DIR
# Exit 77 (skipped) when the machine cannot run it (not root, no cupsd).
set -uo pipefail
# shellcheck source=/dev/null
. "$(dirname "$0")/../common/private_cupsd.sh"

build="$(cd "${1:?usage: destinations.sh BUILD_DIR}" && pwd)"
if [ "$(id -u)" -ne 0 ]; then echo "SKIP: printing through cupsd needs root (cupsd runs backends as root)"; exit 77; fi
for tool in cupsd lpadmin lp runuser useradd xdg-email xdg-mime mount; do
    command -v "$tool" >/dev/null || { echo "SKIP: $tool is not installed (scripts/install-deps.sh installs it)"; exit 77; }
done

D="$(mktemp -d /tmp/quirepad-dest.XXXXXX)"
chmod 755 "$D"
USER_NAME=qpdest
SHARED="$D/shared"
READER="/media/qpreader-$$"
DECOY="/media/qpa-decoy-$$"
CUPSD_PID=
APP_PID=
failures=0
skipped=()

log() { echo "destinations: $*"; }
fail() { echo "destinations: FAIL: $*"; failures=$((failures + 1)); }
cleanup() {
    if [ -n "$APP_PID" ]; then
        pkill -TERM -u "$USER_NAME" -f -- "$QP" 2>/dev/null
        for _ in $(seq 50); do pgrep -u "$USER_NAME" -f -- "$QP" >/dev/null || break; sleep 0.1; done
        pkill -KILL -u "$USER_NAME" -f -- "$QP" 2>/dev/null
        wait "$APP_PID" 2>/dev/null
    fi
    [ -n "$CUPSD_PID" ] && kill -TERM "$CUPSD_PID" 2>/dev/null && wait "$CUPSD_PID" 2>/dev/null
    [ -n "${XVFB_PID:-}" ] && kill -TERM "$XVFB_PID" 2>/dev/null && wait "$XVFB_PID" 2>/dev/null
    for m in "$READER" "$DECOY"; do mountpoint -q "$m" && umount "$m"; rmdir "$m" 2>/dev/null; done
    if [ "$failures" -ne 0 ]; then
        echo "---- application log ----"; tail -40 "$D/app.log" 2>/dev/null
    fi
    rm -rf "$D"
}
trap cleanup EXIT

cmake --install "$build" --prefix "$D/prefix" >/dev/null || { echo "destinations: install failed"; exit 1; }
QP="$D/prefix/bin/quirepad"
export ASAN_OPTIONS=detect_leaks=0

id "$USER_NAME" >/dev/null 2>&1 || useradd -m -s /bin/bash "$USER_NAME"
HOME_DIR="$(getent passwd "$USER_NAME" | cut -d: -f6)"
# With Xvfb and xclip the application runs with its windows on a virtual
# display (the sync folder's link goes to a real clipboard); without them
# it runs headless, and DISPLAY only tells xdg-email that there is a
# session whose mail handler to use.
DISPLAY_NUMBER=":$((90 + $$ % 9))"
as_user() {
    runuser -u "$USER_NAME" -- env HOME="$HOME_DIR" XDG_RUNTIME_DIR="$D/run" XDG_CONFIG_HOME="$D/config" \
        XDG_DATA_HOME="$D/data" XDG_CACHE_HOME="$D/cache-user" QUIREPAD_SHARED_DIR="$SHARED" ASAN_OPTIONS=detect_leaks=0 \
        CUPS_SERVER="$D/cups.sock" DISPLAY="$DISPLAY_NUMBER" "$@"
}
XVFB_PID=
GUI=no
if command -v Xvfb >/dev/null && command -v xclip >/dev/null; then
    Xvfb "$DISPLAY_NUMBER" -ac -nolisten tcp -screen 0 1024x768x24 >/dev/null 2>&1 &
    XVFB_PID=$!
    for _ in $(seq 50); do [ -e "/tmp/.X11-unix/X${DISPLAY_NUMBER#:}" ] && GUI=yes && break; sleep 0.1; done
fi
mkdir -p "$D/run" "$D/data/applications" "$D/config" "$D/cache-user" "$D/sync" "$D/library" "$D/mailbox"
chown -R "$USER_NAME" "$D/run" "$D/data" "$D/config" "$D/cache-user" "$D/sync" "$D/library" "$D/mailbox"
chmod 700 "$D/run"

start_private_cupsd "$D" warn "$SHARED" "$USER_NAME" 127.0.0.1:8632
lpstat -r | grep -q "is running" || { echo "SKIP: cupsd did not start here"; exit 77; }
bash "$D/prefix/share/quirepad/Resources/driver/install-driver.sh" --shared-dir "$SHARED" --cupsd-conf "$D/etc/cupsd.conf" \
    > "$D/install.log" 2>&1 || { cat "$D/install.log"; fail "the driver installer failed"; exit 1; }

# The reader: a volume with "Kindle " in its version file and a documents
# folder; beside it, listed first, a decoy that says "kindle".
READER_OK=yes
for m in "$DECOY" "$READER"; do
    mkdir -p "$m" && mount -t tmpfs -o size=8m,mode=755 qpreader "$m" || READER_OK=no
done
if [ "$READER_OK" = yes ]; then
    mkdir -p "$READER/system" "$READER/documents" "$DECOY/system" "$DECOY/documents"
    echo "Kindle 5.16.2.1.1 (4232100041)" > "$READER/system/version.txt"
    echo "kindle 5.16.2" > "$DECOY/system/version.txt"
    chown "$USER_NAME" "$READER/documents" "$DECOY/documents"
else
    skipped+=("the e-reader over USB: a tmpfs cannot be mounted under /media here")
fi

# The mail handler: a desktop entry that records what it is given.
cat > "$D/record-mail" <<EOF
#!/bin/sh
printf '%s\n' "\$@" > "$D/mailbox/mail.txt"
EOF
chmod 755 "$D/record-mail"
printf '[Desktop Entry]\nType=Application\nName=Recorder\nExec=%s %%u\nMimeType=x-scheme-handler/mailto;\n' "$D/record-mail" \
    > "$D/data/applications/qp-record-mail.desktop"
# A viewer that records the file it is asked to open.
printf '#!/bin/sh\nprintf "%%s\\n" "$@" > "%s"\n' "$D/mailbox/viewed.txt" > "$D/record-view"
chmod 755 "$D/record-view"
printf '[Desktop Entry]\nType=Application\nName=Viewer\nExec=%s %%f\nMimeType=application/pdf;\n' "$D/record-view" \
    > "$D/data/applications/qp-record-view.desktop"
chown "$USER_NAME" "$D/data/applications/qp-record-mail.desktop" "$D/data/applications/qp-record-view.desktop"
as_user xdg-mime default qp-record-mail.desktop x-scheme-handler/mailto

HAS_CALIBRE=no
command -v calibredb >/dev/null && HAS_CALIBRE=yes
[ "$HAS_CALIBRE" = yes ] || skipped+=("the calibre library: calibredb is not installed")

# The destinations; compression stays off so the checks look at the
# printed file itself.
as_user "$QP" destinations add B Books >/dev/null
as_user "$QP" destinations set Books do_compress=false "config.author_name=Ada Lovelace" "config.library_path=$D/library" \
    || fail "cannot set Books"
as_user "$QP" destinations add K Reader >/dev/null
as_user "$QP" destinations set Reader do_compress=false || fail "cannot set Reader"
as_user "$QP" destinations add K Mail >/dev/null
as_user "$QP" destinations set Mail do_compress=false config.transfer_type=1 config.reader_email=reader@example.com \
    || fail "cannot set Mail"
as_user "$QP" destinations add D Sync >/dev/null
as_user "$QP" destinations set Sync do_compress=false config.copy_to_clipboard=true "config.output_dir=file://$D/sync/" \
    || fail "cannot set Sync"

# "X": a sample workflow that saves the text; "O": the recording viewer.
mkdir -p "$D/text" && chown "$USER_NAME" "$D/text"
as_user "$QP" destinations add-workflow "Save as Text" >/dev/null
as_user "$QP" destinations set "Save as Text" name=TextSaver "config.output_dir=file://$D/text/" || fail "cannot set the workflow destination"
as_user "$QP" destinations add-app Viewer qp-record-view.desktop >/dev/null || fail "cannot add Viewer"

if [ "$GUI" = yes ]; then
    as_user env QT_QPA_PLATFORM=xcb "$QP" > "$D/app.log" 2>&1 &
else
    skipped+=("the clipboard: no Xvfb or xclip here")
    as_user "$QP" --headless > "$D/app.log" 2>&1 &
fi
APP_PID=$!
for _ in $(seq 100); do [ -S "$D/run/quirepad/quirepad.sock" ] && break; sleep 0.1; done
[ -S "$D/run/quirepad/quirepad.sock" ] || { fail "the application did not start"; exit 1; }

gs -dSAFER -dBATCH -dNOPAUSE -dQUIET -sDEVICE=pdfwrite -sOutputFile="$D/sample.pdf" \
   -c "/Helvetica findfont 24 scalefont setfont 72 700 moveto (Destinations sample) show showpage" \
   || fail "cannot make the sample PDF"
chmod 644 "$D/sample.pdf"
print_to() { as_user lp -d Print_to_Quirepad -t "$2" -o "quirepad-destination=$1" "$D/sample.pdf" >/dev/null || fail "lp refused the job for $1"; }
wait_until() { # SECONDS COMMAND...
    local tenths=$(($1 * 10)); shift
    for _ in $(seq "$tenths"); do "$@" && return 0; sleep 0.1; done
    return 1
}

# "D": into the sync folder.
print_to Sync "Synced"
if wait_until 30 test -s "$D/sync/Output-Synced.pdf"; then
    cmp -s "$D/sample.pdf" "$D/sync/Output-Synced.pdf" || fail "the synced file differs from the printed one"
    log "sync folder: delivered"
    if [ "$GUI" = yes ]; then
        link="$(as_user timeout 10 xclip -o -selection clipboard 2>&1)"
        [ "$link" = "file://$D/sync/Output-Synced.pdf" ] && log "sync folder: the link is on the clipboard" \
            || fail "the clipboard holds: $link"
    fi
else
    fail "nothing arrived in the sync folder: $(ls "$D/sync")"
fi

# "X": the workflow's own output.
print_to TextSaver "Texted"
if wait_until 30 test -s "$D/text/Texted.txt"; then
    grep -q "Destinations sample" "$D/text/Texted.txt" || fail "the workflow's text lacks the page's words"
    log "workflow: ran and saved the text"
else
    fail "the workflow left nothing: $(ls "$D/text")"
fi

# "O": the viewer opens a copy that outlives the job.
print_to Viewer "Viewed"
if wait_until 30 test -s "$D/mailbox/viewed.txt"; then
    viewed="$(head -1 "$D/mailbox/viewed.txt")"
    sleep 1
    cmp -s "$D/sample.pdf" "$viewed" && log "application: opened $viewed" || fail "the viewer was given $viewed"
else
    fail "the viewer was not started"
fi

# "K" over USB: the reader's documents, not the decoy's.
if [ "$READER_OK" = yes ]; then
    print_to Reader "For the reader"
    if wait_until 30 test -s "$READER/documents/For the reader.pdf"; then
        log "e-reader: delivered to $READER/documents"
    else
        fail "nothing arrived on the reader: $(ls -R "$READER" "$DECOY" | tr '\n' ' ')"
    fi
    [ -z "$(ls -A "$DECOY/documents")" ] || fail "the decoy (\"kindle\" in lower case) was written to"
fi

# "K" by mail: xdg-email hands the registered handler the address, the
# attachment and the subject.
print_to Mail "Mailed"
if wait_until 30 test -s "$D/mailbox/mail.txt"; then
    mail="$(cat "$D/mailbox/mail.txt")"
    case "$mail" in
        mailto:reader@example.com\?*attach=*Mailed.pdf*) log "e-mail: handed to the mail handler" ;;
        *) fail "the mail handler got: $mail" ;;
    esac
else
    fail "the mail handler was not called"
fi

# "B": in the calibre library with its author.
if [ "$HAS_CALIBRE" = yes ]; then
    print_to Books "A Book"
    # calibre locks its library while one program uses it: look once the
    # application is done with it.
    wait_until 120 grep -q "PDF sent to the Books app" "$D/app.log" || fail "the book was not sent: $(grep -i calibre "$D/app.log" | tail -2)"
    listed="$(as_user timeout 60 calibredb list --with-library "$D/library" --for-machine -f title,authors 2>&1)"
    if echo "$listed" | grep -q '"A Book"'; then
        echo "$listed" | grep -q 'Ada Lovelace' || fail "the book is listed without its author: $listed"
        log "e-book library: added with its author"
    else
        fail "the book is not in the calibre library: $listed"
    fi
fi

left="$(ls -A "$SHARED/quirepad_spool" | grep -v '\.info$' | grep -v '^\.quirepad-done-' || true)"
[ -z "$left" ] || fail "left in the spool: $left"
for reason in "${skipped[@]}"; do log "skipped: $reason"; done
if [ "$failures" -eq 0 ]; then echo "destinations: all checks passed"; exit 0; fi
echo "destinations: $failures check(s) failed"; exit 1
