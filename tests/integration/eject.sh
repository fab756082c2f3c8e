#!/usr/bin/env bash
# An e-reader on a loop device, ejected through a real UDisks2 after a
# delivery: a private system bus, udevd with only the block rules UDisks2
# needs, udisksd on that bus. The application runs as root here (UDisks2
# authorises root without polkit; a user would need polkitd and a rule).
#   eject.sh BUILD_DIR
# Exit 77 (skipped) when the machine cannot run it.
set -uo pipefail

build="$(cd "${1:?usage: eject.sh BUILD_DIR}" && pwd)"
QP="$build/bin/quirepad"
UDISKSD=/usr/libexec/udisks2/udisksd
UDEVD=/lib/systemd/systemd-udevd
if [ "$(id -u)" -ne 0 ]; then echo "SKIP: loop devices and udevd need root"; exit 77; fi
for tool in "$UDISKSD" "$UDEVD" dbus-daemon losetup mkfs.ext4 udevadm; do
    command -v "$tool" >/dev/null || { echo "SKIP: $tool is not installed (scripts/install-deps.sh installs it)"; exit 77; }
done
if pgrep -x systemd-udevd >/dev/null; then echo "SKIP: a udevd of the system runs already; this test starts its own"; exit 77; fi

D="$(mktemp -d /tmp/quirepad-eject.XXXXXX)"
MOUNT="/media/qpeject-$$"
LOOP=
PIDS=()
MASKED=()
failures=0
log() { echo "eject: $*"; }
fail() { echo "eject: FAIL: $*"; failures=$((failures + 1)); }
cleanup() {
    mountpoint -q "$MOUNT" && umount "$MOUNT"
    rmdir "$MOUNT" 2>/dev/null
    [ -n "$LOOP" ] && losetup "$LOOP" >/dev/null 2>&1 && losetup -d "$LOOP"
    for pid in "${PIDS[@]}"; do kill -TERM "$pid" 2>/dev/null && wait "$pid" 2>/dev/null; done
    for rule in "${MASKED[@]}"; do rm -f "/run/udev/rules.d/$rule"; done
    if [ "$failures" -ne 0 ]; then echo "---- log ----"; tail -30 "$D/app.log" 2>/dev/null; tail -15 "$D/udisks.log" 2>/dev/null; fi
    rm -rf "$D"
}
trap cleanup EXIT

# A private system bus: the system's configuration, listening in $D.
sed -e "s|<listen>.*</listen>|<listen>unix:path=$D/system_bus_socket</listen>|" \
    -e '/<pidfile>/d' -e '/<servicehelper>/d' -e '/<standard_system_servicedirs\/>/d' -e '/<user>/d' \
    -e 's|<includedir>system.d</includedir>|<includedir>/usr/share/dbus-1/system.d</includedir>|' \
    /usr/share/dbus-1/system.conf > "$D/system.conf"
dbus-daemon --config-file="$D/system.conf" --nofork --nopidfile > "$D/dbus.log" 2>&1 &
PIDS+=($!)
export DBUS_SYSTEM_BUS_ADDRESS="unix:path=$D/system_bus_socket"
for _ in $(seq 50); do [ -S "$D/system_bus_socket" ] && break; sleep 0.1; done
[ -S "$D/system_bus_socket" ] || { echo "SKIP: the private system bus did not start"; exit 77; }

# udevd with the block rules only (the others would touch the machine).
mkdir -p /run/udev/rules.d
for rule in /lib/udev/rules.d/*.rules; do
    name="$(basename "$rule")"
    case "$name" in 50-udev-default.rules|60-block.rules|60-persistent-storage.rules|80-udisks2.rules) continue ;; esac
    [ -e "/run/udev/rules.d/$name" ] && continue
    ln -s /dev/null "/run/udev/rules.d/$name" && MASKED+=("$name")
done
"$UDEVD" > "$D/udevd.log" 2>&1 &
PIDS+=($!)
sleep 0.5
"$UDISKSD" --no-sigint > "$D/udisks.log" 2>&1 &
PIDS+=($!)
for _ in $(seq 100); do
    dbus-send --system --print-reply --dest=org.freedesktop.UDisks2 /org/freedesktop/UDisks2/Manager \
        org.freedesktop.DBus.Properties.Get string:org.freedesktop.UDisks2.Manager string:Version >/dev/null 2>&1 && break
    sleep 0.1
done

# The reader: an ext4 image on a loop device, mounted under /media.
truncate -s 24M "$D/reader.img" && mkfs.ext4 -q -L READER -F "$D/reader.img" \
    || { echo "SKIP: cannot make an ext4 image"; exit 77; }
LOOP="$(losetup -f --show "$D/reader.img" 2>/dev/null)" || { echo "SKIP: no loop devices here"; LOOP=; exit 77; }
udevadm settle -t 5 2>/dev/null
mkdir -p "$MOUNT" && mount "$LOOP" "$MOUNT" || { echo "SKIP: the loop device cannot be mounted"; exit 77; }
mkdir -p "$MOUNT/system" "$MOUNT/documents"
echo "Kindle 5.16.2.1.1" > "$MOUNT/system/version.txt"
sync

# The application, as root, with its own folders: deliver and eject.
export HOME="$D/home" XDG_RUNTIME_DIR="$D/run" XDG_CONFIG_HOME="$D/config" XDG_DATA_HOME="$D/data" XDG_CACHE_HOME="$D/cache" \
    QUIREPAD_SHARED_DIR="$D/shared" ASAN_OPTIONS=detect_leaks=0
mkdir -p "$HOME" "$XDG_RUNTIME_DIR" && chmod 700 "$XDG_RUNTIME_DIR"
"$QP" destinations add K Reader >/dev/null
"$QP" destinations set Reader do_compress=false config.eject_kindle=true || fail "cannot set Reader"
printf '%%PDF-1.4 for the reader\n' > "$D/book.pdf"
"$QP" deliver Reader "$D/book.pdf" --title "Ejected book" > "$D/app.log" 2>&1 || fail "the delivery failed: $(tail -3 "$D/app.log")"

# Delivered, written out, and the volume gone: unmounted, loop device deleted.
ejected=no
for _ in $(seq 100); do
    if ! mountpoint -q "$MOUNT" && ! losetup "$LOOP" >/dev/null 2>&1; then ejected=yes; break; fi
    sleep 0.1
done
if [ "$ejected" = yes ]; then
    log "the reader was unmounted and its loop device deleted through UDisks2"
    check="$D/check"
    mkdir -p "$check" && mount -o loop,ro "$D/reader.img" "$check" || fail "cannot look into the image"
    [ -s "$check/documents/Ejected book.pdf" ] && log "the book is on the reader" || fail "the book is not on the reader"
    umount "$check"
else
    fail "the reader is still there (mounted: $(mountpoint -q "$MOUNT" && echo yes || echo no))"
fi

if [ "$failures" -eq 0 ]; then echo "eject: all checks passed"; exit 0; fi
echo "eject: $failures check(s) failed"; exit 1
