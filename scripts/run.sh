#!/usr/bin/env bash
# Installs what is missing, builds, and runs the viewer on its built-in scene.
# Without a display it renders headless and writes orvane_viewer.png instead.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install_deps.sh
scripts/build.sh
viewer=${BUILD_DIR:-build}/apps/viewer/orvane_viewer
if [ -n "${DISPLAY:-}" ]; then
  exec "$viewer" "$@"
fi
# No display: render the same scene without a window (GL still needs an X server: Xvfb).
xvfb-run -a -s "-screen 0 1280x1024x24 -nolisten tcp" "$viewer" --offscreen --size 1024x768 --out orvane_viewer.png "$@"
echo "wrote $(pwd)/orvane_viewer.png"
