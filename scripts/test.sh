#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test headless (Xvfb + Mesa llvmpipe); then
# installs the library into the build folder and builds and runs the example against that.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
build=${BUILD_DIR:-build}
scripts/install_deps.sh
scripts/build.sh "$@"
export LIBGL_ALWAYS_SOFTWARE=1
xvfb=(xvfb-run -a -s "-screen 0 1280x1024x24 -nolisten tcp")
(cd "$build" && "${xvfb[@]}" ctest --output-on-failure -j 1 --timeout 300)

# The example sees only the installed package, as an application would.
cmake --install "$build" --prefix "$root/$build/install" >/dev/null
cmake -S examples/canvas_mesh -B "$build/example" -G Ninja \
  -DCMAKE_PREFIX_PATH="$root/$build/install" >/dev/null
cmake --build "$build/example"
(cd "$build/example" && "${xvfb[@]}" ctest --output-on-failure --timeout 300)
