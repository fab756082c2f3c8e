#!/usr/bin/env bash
# Installs what is missing, builds, and runs the program's main job.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh
scripts/build.sh release
build/bin/quirepad --version
