#!/usr/bin/env bash
# Installs every Debian 12 package the project needs to build, test and run.
# Each subsystem adds its packages to the list below. Runs apt only when
# something is missing, so repeated runs cost nothing.
set -euo pipefail

PACKAGES=(
    # toolchain
    cmake ninja-build g++ pkg-config
    # Qt 6 (Core, Gui, Widgets, Network, Sql, DBus, Test) and its SQLite driver
    qt6-base-dev qt6-base-dev-tools libqt6sql6-sqlite qt6-qpa-plugins libgl-dev
    # SVG icons (image format and icon engine plugins)
    libqt6svg6
    # foundation: property lists, ICU dates, zlib
    libplist-dev libplist++-dev libicu-dev zlib1g-dev
    # plugin packages: zip archives unpacked in-process
    libzip-dev
    # shell commands run through the Korn shell
    ksh
    # desktop services under test: a private D-Bus, a virtual display
    dbus xvfb xauth fonts-dejavu-core
    # a notification daemon whose popups the pictures show
    dunst
    # PDF work: compression, keywords, the sample workflows
    ghostscript qpdf libqpdf-dev poppler-utils
    # printing: the CUPS backend and its scheduler, IPP tools, the
    # reference PDF printer of the benchmark, network namespaces for tests
    libcups2-dev cups cups-client cups-bsd cups-filters cups-ipp-utils printer-driver-cups-pdf iproute2 policykit-1
    # destinations: the e-book library (calibredb), mail and mime handlers
    calibre xdg-utils xclip
    # opening packages as a file manager does: their MIME type, then gio
    shared-mime-info libglib2.0-bin
    # ejecting an e-reader: UDisks2 (and udevd) started by the test itself
    udisks2
    # DNS-SD: the Avahi client library, and the daemon and tools the
    # AirPrint test starts in network namespaces of its own
    libavahi-client-dev avahi-daemon avahi-utils
    # the page feed over HTTP: its RSS read by feedparser, its index page
    # opened in headless Chromium
    python3-feedparser chromium
    # fuzzing the HTTP request parser: clang and its libFuzzer runtime
    clang libclang-rt-14-dev
    # web capture: Qt WebEngine and the web channel, linked by the worker
    # quirepad-webcapture only, and Chromium's helper process
    qt6-webengine-dev qt6-webchannel-dev libqt6webenginecore6-bin
    # desktop integration: icons rendered from the SVG at build time, the
    # validators of the desktop entry and the AppStream file, the Debian
    # package's library dependencies (dpkg-shlibdeps)
    librsvg2-bin desktop-file-utils appstream file dpkg-dev
    # the manual page checked for roff warnings
    groff-base
)

missing=()
for pkg in "${PACKAGES[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q "install ok installed"; then
        missing+=("$pkg")
    fi
done

if [ ${#missing[@]} -eq 0 ]; then
    echo "install-deps: all ${#PACKAGES[@]} packages present"
    exit 0
fi

if [ "$(id -u)" -ne 0 ]; then
    echo "install-deps: missing packages: ${missing[*]}" >&2
    echo "install-deps: run as root (or with sudo) to install them" >&2
    exit 1
fi

echo "install-deps: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
apt-get update -q
apt-get install -y -q --no-install-recommends "${missing[@]}"
