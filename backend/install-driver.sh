#!/usr/bin/env bash
# Installs the Quirepad print driver: the CUPS backend, its PPD, the shared
# folder the backend and the application meet in, and the shared queue
# "Print_to_Quirepad". Safe to run again: every step brings the system to
# the same state.
#
# The files it installs lie beside this script (the application's
# Resources/driver/ folder): quirepad (the backend), quirepad.ppd.
#
# Usage: install-driver.sh [options]
#   --shared-dir DIR     shared folder (default /var/spool/quirepad). The
#                        backend reads it from $QUIREPAD_SHARED_DIR; for any
#                        other folder, CUPS must set that variable (see
#                        --cups-files-conf), and the application must see it
#                        too.
#   --cups-files-conf FILE
#                        also write "SetEnv QUIREPAD_SHARED_DIR DIR" into FILE,
#                        usually /etc/cups/cups-files.conf (CUPS 2.4 honours
#                        SetEnv there only; in cupsd.conf it is ignored
#                        without a word). Removes the line when DIR is the
#                        default. CUPS must be restarted after.
#   --no-queue           install the files only; leave the CUPS queues alone.
#   --destdir DIR        install under DIR instead of / (packaging, tests);
#                        implies --no-queue.
#   -h, --help           this text.
set -euo pipefail

readonly QUEUE=Print_to_Quirepad
readonly DEFAULT_SHARED_DIR=/var/spool/quirepad

say() { printf 'install-driver: %s\n' "$*"; }
die() {
    printf 'install-driver: error: %s\n' "$*" >&2
    exit 1
}
usage() { sed -n '/^# Usage:/,/^set -euo/{/^set -euo/d;s/^# \{0,1\}//;p}' "$0"; }

shared_dir=$DEFAULT_SHARED_DIR
cups_files_conf=
make_queue=1
destdir=
while [ $# -gt 0 ]; do
    case $1 in
    --shared-dir)
        [ $# -ge 2 ] || die "--shared-dir needs a folder"
        shared_dir=$2
        shift 2
        ;;
    --cups-files-conf)
        [ $# -ge 2 ] || die "--cups-files-conf needs a file"
        cups_files_conf=$2
        shift 2
        ;;
    --cupsd-conf)
        die "CUPS ignores SetEnv in cupsd.conf; use --cups-files-conf /etc/cups/cups-files.conf"
        ;;
    --no-queue)
        make_queue=0
        shift
        ;;
    --destdir)
        [ $# -ge 2 ] || die "--destdir needs a folder"
        destdir=${2%/}
        make_queue=0
        shift 2
        ;;
    -h | --help)
        usage
        exit 0
        ;;
    *)
        usage >&2
        die "unknown option: $1"
        ;;
    esac
done

case $shared_dir in
/*) ;;
*) die "--shared-dir must be an absolute path: $shared_dir" ;;
esac
shared_dir=${shared_dir%/}
[ -n "$shared_dir" ] || die "--shared-dir must not be /"

[ "$(id -u)" -eq 0 ] || die "must run as root (try: sudo $0 $*)"

here=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")" && pwd)
backend_src=$here/quirepad
ppd_src=$here/quirepad.ppd
[ -f "$backend_src" ] && [ -x "$backend_src" ] || die "the backend is missing beside this script: $backend_src"
[ -f "$ppd_src" ] || die "the PPD is missing beside this script: $ppd_src"

backend_dst=$destdir/usr/lib/cups/backend/quirepad
ppd_dst=$destdir/usr/share/ppd/quirepad/quirepad.ppd
shared=$destdir$shared_dir
spool=$shared/quirepad_spool
trigger=$shared/.quirepad_trigger_file_end

# The backend runs as root only when it is not readable by others (see
# `man backend`): root is needed to hand each job to its user.
install -d -o root -g root -m 0755 "$(dirname "$backend_dst")"
install -o root -g root -m 0700 "$backend_src" "$backend_dst"
say "backend installed: $backend_dst (root:root 0700)"

install -d -o root -g root -m 0755 "$(dirname "$ppd_dst")"
install -o root -g root -m 0644 "$ppd_src" "$ppd_dst"
say "PPD installed: $ppd_dst"

# Sticky and writable by everyone, like /tmp: every user's Quirepad removes
# its own jobs and nobody else's.
for dir in "$shared" "$spool"; do
    if [ -L "$dir" ] || { [ -e "$dir" ] && [ ! -d "$dir" ]; }; then
        die "$dir exists and is not a folder"
    fi
    install -d "$dir"
    chown root:root "$dir"
    chmod 1777 "$dir"
done
say "shared folder ready: $shared (1777), spool: $spool (1777)"

[ -L "$trigger" ] && rm -f -- "$trigger"
[ -e "$trigger" ] || : >"$trigger"
chown root:root "$trigger"
chmod 0777 "$trigger"
say "end trigger file ready: $trigger (0777)"

if [ -n "$cups_files_conf" ]; then
    conf=$cups_files_conf
    [ -f "$conf" ] || die "no such CUPS configuration file: $conf"
    tmp=$(mktemp "$conf.XXXXXX")
    grep -v '^[[:space:]]*SetEnv[[:space:]]\+QUIREPAD_SHARED_DIR[[:space:]]' "$conf" >"$tmp" || true
    if [ "$shared_dir" != "$DEFAULT_SHARED_DIR" ]; then
        printf 'SetEnv QUIREPAD_SHARED_DIR %s\n' "$shared_dir" >>"$tmp"
    fi
    if cmp -s "$tmp" "$conf"; then
        rm -f -- "$tmp"
        say "$conf already up to date"
    else
        chmod --reference="$conf" "$tmp"
        chown --reference="$conf" "$tmp"
        mv -f -- "$tmp" "$conf"
        say "$conf updated; restart CUPS for it to take effect (systemctl restart cups)"
    fi
elif [ "$shared_dir" != "$DEFAULT_SHARED_DIR" ]; then
    say "note: CUPS must pass QUIREPAD_SHARED_DIR=$shared_dir to the backend" \
        "(SetEnv in cups-files.conf, see --cups-files-conf)"
fi

if [ "$make_queue" -eq 0 ]; then
    say "queue left alone (--no-queue); done"
    exit 0
fi

for tool in lpadmin cupsenable cupsaccept lpstat; do
    command -v "$tool" >/dev/null 2>&1 || die "$tool not found: install the CUPS client programs (cups-client)"
done
[ "$(lpstat -r 2>/dev/null)" = "scheduler is running" ] \
    || die "the CUPS scheduler is not running: start it (systemctl start cups) and run this again, or use --no-queue"

# lpadmin creates the queue or updates the existing one in place. CUPS 2.4
# warns that PPD drivers are deprecated; that warning is not ours to show.
if ! out=$(lpadmin -p "$QUEUE" -E -v quirepad:/ -P "$ppd_dst" -o printer-is-shared=true \
    -D "Print to Quirepad" 2>&1); then
    printf '%s\n' "$out" >&2
    die "lpadmin could not set up $QUEUE (see the CUPS error log)"
fi
printf '%s\n' "$out" | grep -v -i 'drivers are deprecated' | grep . || true
cupsenable "$QUEUE" || die "cupsenable $QUEUE failed"
cupsaccept "$QUEUE" || die "cupsaccept $QUEUE failed"
say "queue $QUEUE ready (shared); done"
