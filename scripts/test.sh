#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test headless (Xvfb + Mesa llvmpipe).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install_deps.sh
scripts/build.sh "$@"
export LIBGL_ALWAYS_SOFTWARE=1
cd "${BUILD_DIR:-build}"
xvfb-run -a -s "-screen 0 1280x1024x24 -nolisten tcp" ctest --output-on-failure -j 1 --timeout 300
