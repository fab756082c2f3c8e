#!/usr/bin/env bash
# The Debian package end to end: built with `scripts/build.sh deb`, installed
# with apt from the file alone (no download), the queue set up in a private
# cupsd, then removed and purged, leaving nothing of ours in /usr. A second
# round installs and purges with no scheduler running.
#   deb_package.sh SOURCE_DIR
# Exit 77 (skipped) when not root. Files of ours that other tests leave
# in the system (the backend, the PPD, the shared folder) are put aside
# first and back after.
set -uo pipefail
# shellcheck source=/dev/null
. "$(dirname "$0")/../common/private_cupsd.sh"

src="$(cd "${1:?usage: deb_package.sh SOURCE_DIR}" && pwd)"
if [ "$(id -u)" -ne 0 ]; then echo "SKIP: installing a package needs root"; exit 77; fi

BACKEND=/usr/lib/cups/backend/quirepad
PPD=/usr/share/ppd/quirepad/quirepad.ppd
SHARED=/var/spool/quirepad
SHARED_ASIDE=/var/spool/.quirepad-debtest-$$
D="$(mktemp -d /tmp/quirepad-deb.XXXXXX)"
chmod 755 "$D"
CUPSD_PID=
installed=no
failures=0

log() { echo "deb: $*"; }
fail() { echo "deb: FAIL: $*"; failures=$((failures + 1)); }
stop_cupsd() { [ -n "$CUPSD_PID" ] && kill -TERM "$CUPSD_PID" 2>/dev/null && wait "$CUPSD_PID" 2>/dev/null; CUPSD_PID=; }
cleanup() {
    [ "$installed" = yes ] && apt-get purge -y -q quirepad >>"$D/apt.log" 2>&1
    stop_cupsd
    [ -e "$D/saved/backend" ] && mkdir -p "${BACKEND%/*}" && mv "$D/saved/backend" "$BACKEND"
    [ -e "$D/saved/ppd" ] && mkdir -p "${PPD%/*}" && mv "$D/saved/ppd" "$PPD"
    [ -e "$SHARED_ASIDE" ] && ! [ -e "$SHARED" ] && mv -T "$SHARED_ASIDE" "$SHARED"
    if [ "$failures" -ne 0 ]; then
        echo "---- apt and maintainer scripts (last lines) ----"; tail -60 "$D/apt.log" 2>/dev/null
    fi
    rm -rf "$D"
}
trap cleanup EXIT

# dpkg's state of the package: empty or not-installed when it knows none.
pkg_state() { dpkg-query -W -f='${db:Status-Status}' quirepad 2>/dev/null; }
case "$(pkg_state)" in "" | not-installed) ;; *)
    echo "deb: FAIL: a quirepad package is installed already; this test would replace it"
    exit 1
    ;;
esac

started=$(date +%s)
"$src/scripts/build.sh" deb >"$D/build.log" 2>&1 || { tail -40 "$D/build.log"; echo "deb: FAIL: the package did not build"; exit 1; }
deb=$(sed -n 's/^package: //p' "$D/build.log")
[ -f "$src/$deb" ] || { cat "$D/build.log"; echo "deb: FAIL: no package made"; exit 1; }
log "package $deb built in $(($(date +%s) - started)) s"
cp "$src/$deb" "$D/quirepad.deb" && chmod 644 "$D/quirepad.deb"
version=$(dpkg-deb -f "$D/quirepad.deb" Version)
dir="$src/${deb%/*}"

# What an install of the same tree lays out: every file must be in /usr.
cmake --install "$dir" --prefix "$D/stage" >/dev/null || { echo "deb: FAIL: cmake --install failed"; exit 1; }
(cd "$D/stage" && find . -type f -o -type l) | sed 's|^\./||' | sort >"$D/files"
for kind in share/man/ share/bash-completion/ share/zsh/; do
    if grep -q "^$kind" "$D/files"; then log "the package holds $kind"; else log "no $kind in this tree"; fi
done

mkdir -p "$D/saved"
[ -e "$BACKEND" ] && mv "$BACKEND" "$D/saved/backend"
[ -e "$PPD" ] && mv "$PPD" "$D/saved/ppd"
if [ -e "$SHARED" ] || [ -L "$SHARED" ]; then mv -T "$SHARED" "$SHARED_ASIDE" || exit 1; fi

# A private scheduler; the maintainer scripts reach it as any CUPS client
# does (CUPS_SERVER) and write the policy into its CUPS_SERVERROOT.
start_private_cupsd "$D" warn "$SHARED" root || { echo "deb: FAIL: cupsd did not start"; exit 1; }
export CUPS_SERVERROOT="$D/etc"

# apt without any package source: what the package needs must be installed
# already, nothing can be downloaded.
apt_get() {
    DEBIAN_FRONTEND=noninteractive apt-get -y -q -o Dir::Etc::SourceList=/dev/null -o Dir::Etc::SourceParts=/dev/null \
        "$@" >>"$D/apt.log" 2>&1
}

# Round 1: with the scheduler.
installed=yes
apt_get install "$D/quirepad.deb" || fail "apt-get install failed (a dependency to download?)"
[ "$(dpkg-query -W -f='${Status} ${Version}' quirepad 2>/dev/null)" = "install ok installed $version" ] || fail "quirepad $version is not installed"
missing=0
while IFS= read -r f; do [ -e "/usr/$f" ] || { fail "not installed: /usr/$f"; missing=1; }; done <"$D/files"
[ "$missing" = 0 ] && log "all $(wc -l <"$D/files") files in /usr"
for f in applications/com.halvern.Quirepad.desktop metainfo/com.halvern.Quirepad.metainfo.xml \
    icons/hicolor/scalable/apps/com.halvern.Quirepad.svg icons/hicolor/48x48/apps/com.halvern.Quirepad.png \
    mime/packages/quirepad.xml mime/application/x-quirepad-plugin.xml ppd/quirepad/quirepad.ppd; do
    [ -f "/usr/share/$f" ] || fail "missing /usr/share/$f"
done
out=$(dpkg --verify quirepad 2>&1)
[ -z "$out" ] || fail "files of the package changed after installing: $out"
[ "$(stat -c %U:%G:%a "$BACKEND" 2>/dev/null)" = root:root:700 ] || fail "backend: $(stat -c %U:%G:%a "$BACKEND" 2>&1), not root:root:700"
lpstat -v Print_to_Quirepad 2>&1 | grep -q 'quirepad:/' || fail "no queue: $(lpstat -v Print_to_Quirepad 2>&1)"
[ "$(grep -c '^<Policy quirepad>' "$D/etc/cupsd.conf")" = 1 ] || fail "the policy is not in the scheduler's configuration once"
[ "$(stat -c %U:%a "$SHARED" "$SHARED/quirepad_spool" 2>/dev/null | tr '\n' ' ')" = "root:1777 root:1777 " ] \
    || fail "shared folder: $(stat -c '%n %U:%a' "$SHARED" "$SHARED/quirepad_spool" 2>&1)"
out=$(env -i PATH=/usr/bin:/bin HOME="$D" QT_QPA_PLATFORM=offscreen /usr/bin/quirepad --version 2>&1)
[[ "$out" == *"${version}"* ]] || fail "quirepad --version: $out"

# Installing again over itself (an upgrade's scripts) changes nothing.
apt_get install --reinstall "$D/quirepad.deb" || fail "reinstalling failed"
lpstat -v Print_to_Quirepad >/dev/null 2>&1 || fail "the queue went on reinstalling"
[ "$(grep -c '^<Policy quirepad>' "$D/etc/cupsd.conf")" = 1 ] || fail "the policy is there twice after reinstalling"

apt_get remove quirepad || fail "apt-get remove failed"
lpstat -v Print_to_Quirepad >/dev/null 2>&1 && fail "the queue is still there after remove"
grep -q 'quirepad-policy\|<Policy quirepad>' "$D/etc/cupsd.conf" && fail "the policy is still in the scheduler's configuration"
[ -e "$BACKEND" ] && fail "the backend is still there after remove"
left=$(while IFS= read -r f; do [ -e "/usr/$f" ] && echo "/usr/$f"; done <"$D/files")
[ -z "$left" ] || fail "left in /usr after remove: $left"
[ -d "$SHARED/quirepad_spool" ] || fail "remove took the spool (only purge does)"

# Purge takes the shared folder, and no link planted in it is followed.
echo keep >"$D/victim"
ln -s "$D/victim" "$SHARED/quirepad_spool/planted.pdf"
mkdir "$SHARED/quirepad_spool/folder" && ln -s "$D" "$SHARED/quirepad_spool/folder/up"
apt_get purge quirepad || fail "apt-get purge failed"
installed=no
[ -e "$SHARED" ] && fail "purge left $SHARED"
[ "$(cat "$D/victim" 2>/dev/null)" = keep ] || fail "purge followed a link out of the spool"
case "$(pkg_state)" in "" | not-installed) ;; *) fail "dpkg still has quirepad: $(pkg_state)" ;; esac

# Round 2: no scheduler. Installing and purging still work, and say how to
# make the queue later.
stop_cupsd
: >"$D/apt.log"
installed=yes
apt_get install "$D/quirepad.deb" || fail "apt-get install failed without a scheduler"
grep -q 'no print queue was created' "$D/apt.log" || fail "the package did not say how to make the queue later"
[ -d "$SHARED/quirepad_spool" ] || fail "no spool without a scheduler"
apt_get purge quirepad || fail "apt-get purge failed without a scheduler"
installed=no
[ -e "$SHARED" ] && fail "purge without a scheduler left $SHARED"
[ -e "$BACKEND" ] && fail "purge without a scheduler left the backend"

if [ "$failures" -ne 0 ]; then echo "deb: $failures failure(s)"; exit 1; fi
echo "deb: all checks passed"
