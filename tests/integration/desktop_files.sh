#!/usr/bin/env bash
# The desktop integration files as installed: the desktop entry and the
# AppStream description pass their validators, the package types make a
# MIME database, the icon is there at every size the entry can ask for, and
# every type the entry opens is known.
#   desktop_files.sh BUILD_DIR
set -uo pipefail

build="$(cd "${1:?usage: desktop_files.sh BUILD_DIR}" && pwd)"
for tool in desktop-file-validate appstreamcli xmllint update-mime-database file; do
    command -v "$tool" >/dev/null || { echo "SKIP: $tool is not installed (scripts/install-deps.sh installs it)"; exit 77; }
done
D="$(mktemp -d)"
trap 'rm -rf "$D"' EXIT
failures=0
fail() { echo "desktop: FAIL: $*"; failures=$((failures + 1)); }

cmake --install "$build" --prefix "$D/usr" >/dev/null || { echo "desktop: FAIL: cmake --install failed"; exit 1; }
share="$D/usr/share"
entry="$share/applications/com.halvern.Quirepad.desktop"
metainfo="$share/metainfo/com.halvern.Quirepad.metainfo.xml"

out=$(desktop-file-validate "$entry" 2>&1)
[ -z "$out" ] || fail "desktop-file-validate: $out"
# Errors and warnings fail; the one pedantic remark (the id's capitals, which
# are the program's D-Bus name) does not.
appstreamcli validate --no-net "$metainfo" >"$D/as.log" 2>&1 || fail "appstreamcli: $(cat "$D/as.log")"
grep -Eq '^[EW]:' "$D/as.log" && fail "appstreamcli: $(cat "$D/as.log")"
version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$build/CMakeCache.txt")
grep -q "<release version=\"$version\"" "$metainfo" || fail "the release $version is not in the AppStream file"

xmllint --noout "$share/mime/packages/quirepad.xml" || fail "the MIME types are not well-formed XML"
XDG_DATA_DIRS="$share" update-mime-database "$share/mime" 2>"$D/mime.log" || fail "update-mime-database: $(cat "$D/mime.log")"
[ -s "$D/mime.log" ] && fail "update-mime-database complained: $(cat "$D/mime.log")"
for glob in 'application/x-quirepad-plugin:*.qpdplugin' 'application/x-quirepad-filter:*.qpdfilter'; do
    grep -qF "$glob" "$share/mime/globs2" || fail "no glob $glob in the database"
done

# Each type the entry opens is ours or in the system's database.
types=$(sed -n 's/^MimeType=//p' "$entry" | tr ';' ' ')
for t in $types; do
    [ -f "$share/mime/$t.xml" ] || [ -f "/usr/share/mime/$t.xml" ] || fail "the entry opens an unknown type $t"
done
case " $types " in *" application/pdf "*) ;; *) fail "the entry does not open PDF files" ;; esac

icon=$(sed -n 's/^Icon=//p' "$entry")
[ -f "$share/icons/hicolor/scalable/apps/$icon.svg" ] || fail "no scalable icon $icon"
for size in 16 22 24 32 48 64 128 256; do
    png="$share/icons/hicolor/${size}x${size}/apps/$icon.png"
    file -b "$png" 2>&1 | grep -q "PNG image data, $size x $size," || fail "icon $size: $(file -b "$png" 2>&1)"
done

if [ "$failures" -ne 0 ]; then echo "desktop: $failures failure(s)"; exit 1; fi
echo "desktop: all checks passed"
