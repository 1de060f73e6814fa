#!/usr/bin/env bash
# Configures and builds into ${BUILD_DIR:-build}; extra arguments go to CMake's configure step.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${BUILD_DIR:-build}
cmake -S . -B "$build" -G Ninja "$@" >/dev/null
cmake --build "$build" -j "$(nproc)"
