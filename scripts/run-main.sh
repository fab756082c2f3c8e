#!/usr/bin/env bash
# Installs what is missing, builds, and runs the program's main job: a
# printed document (a PDF made here with Ghostscript) delivered to the
# built-in "Copy to Desktop" destination through the same code a print job
# takes, the output name built from the destination's pattern.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh
scripts/build.sh release

quirepad=build/bin/quirepad
"$quirepad" --version

work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
cat > "$work/page.ps" <<'PS'
%!PS
/Helvetica findfont 28 scalefont setfont
72 700 moveto (Quirepad delivery check) show
/Helvetica findfont 14 scalefont setfont
72 660 moveto (Printed, then delivered to a destination.) show
showpage
PS
gs -dSAFER -dBATCH -dNOPAUSE -dQUIET -sDEVICE=pdfwrite -sOutputFile="$work/document.pdf" "$work/page.ps"

delivered="$("$quirepad" deliver copy_to_desktop "$work/document.pdf" --title "Quirepad delivery check" --user "$(id -un)")"
echo "delivered: $delivered"
test -s "$delivered"
pdftotext "$delivered" - | grep -q "Quirepad delivery check"
echo "main job: OK"
