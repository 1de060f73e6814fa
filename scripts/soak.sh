#!/usr/bin/env bash
# The long soak of the live cloud: four producers stream into one cloud for ORVANE_SOAK_SECONDS
# (default 600, split between a rigid and a non-rigid scan) while frames draw, the camera turns
# and the scan is paused and resumed. BUILD_DIR picks the build (default build).
set -euo pipefail
cd "$(dirname "$0")/.."
build=${BUILD_DIR:-build}
export ORVANE_SOAK_SECONDS=${ORVANE_SOAK_SECONDS:-600}
export LIBGL_ALWAYS_SOFTWARE=1
nice -n 10 cmake --build "$build" --target incre_point_soak_gl_test
nice -n 10 xvfb-run -a -s "-screen 0 1280x1024x24 -nolisten tcp" \
  "$build/tests/lib/incre_point_soak_gl_test"
