#!/usr/bin/env bash
# Configures and builds one build tree.
#   scripts/build.sh [release|sanitize|deb]
#   release  -> build/       (RelWithDebInfo; what run-main.sh runs)
#   sanitize -> build-asan/  (Debug with AddressSanitizer + UBSan; what the tests run)
#   deb      -> build-deb/quirepad_VERSION_ARCH.deb (RelWithDebInfo without the
#               tests and benchmarks; the release tree build/ is packaged
#               instead when it is there already; QUIREPAD_DEB_DIR names another
#               tree). ccache is used when installed.
set -euo pipefail
cd "$(dirname "$0")/.."

kind="${1:-release}"
case "$kind" in
    release)  dir=build;      args=(-DCMAKE_BUILD_TYPE=RelWithDebInfo) ;;
    sanitize) dir=build-asan; args=(-DCMAKE_BUILD_TYPE=Debug -DQUIREPAD_SANITIZE=ON) ;;
    deb)
        deb_args=(-DCMAKE_BUILD_TYPE=RelWithDebInfo -DQUIREPAD_SANITIZE=OFF -DQUIREPAD_BUILD_TESTS=OFF -DQUIREPAD_BUILD_BENCH=OFF)
        if command -v ccache >/dev/null; then
            deb_args+=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_C_COMPILER_LAUNCHER=ccache)
        fi
        if [ -n "${QUIREPAD_DEB_DIR:-}" ]; then
            dir=$QUIREPAD_DEB_DIR; args=("${deb_args[@]}")
        elif [ -f build/CMakeCache.txt ] && grep -qx 'CMAKE_BUILD_TYPE:STRING=RelWithDebInfo' build/CMakeCache.txt \
            && grep -qx 'QUIREPAD_SANITIZE:BOOL=OFF' build/CMakeCache.txt; then
            dir=build; args=()
        else
            dir=build-deb; args=("${deb_args[@]}")
        fi
        ;;
    *) echo "usage: $0 [release|sanitize|deb]" >&2; exit 2 ;;
esac

cmake -S . -B "$dir" -G Ninja "${args[@]}" >/dev/null
cmake --build "$dir" -j "$(nproc)"
echo "built $dir"

if [ "$kind" = deb ]; then
    rm -f "$dir"/quirepad_*.deb
    (cd "$dir" && cpack -G DEB >cpack.log 2>&1) || { cat "$dir/cpack.log" >&2; exit 1; }
    for deb in "$dir"/quirepad_*.deb; do echo "package: $deb"; done
fi
