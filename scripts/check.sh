#!/usr/bin/env bash
# Builds the library, its tests and the viewer with AddressSanitizer + UndefinedBehaviorSanitizer
# (build-asan) and, separately, with ThreadSanitizer (build-tsan), and runs the whole suite under
# each. Suppressions, each with its reason, are in tests/sanitizers/.
#   scripts/check.sh            both
#   scripts/check.sh asan       only ASan + UBSan
#   scripts/check.sh tsan       only TSan
# Extra arguments after the first go to ctest (e.g. -R live_cloud).
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
supp=$root/tests/sanitizers
which=${1:-all}
shift || true
export LIBGL_ALWAYS_SOFTWARE=1
export CMAKE_CXX_COMPILER_LAUNCHER=${CMAKE_CXX_COMPILER_LAUNCHER:-$(command -v ccache || true)}
xvfb=(xvfb-run -a -s "-screen 0 1280x1024x24 -nolisten tcp")
# Each test starts through tests/sanitizers/preload.sh (CMake's test launcher), which preloads
# the sanitizer runtime, Mesa's driver and libdbus for the test alone: libraries that the test
# closes before the leak check keep a module name the suppressions can match.
suite() {
  local build=$1 sanitize=$2
  shift 2
  cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DORVANE_BUILD_BENCH=OFF \
    -DORVANE_SANITIZE="$sanitize" \
    -DCMAKE_CROSSCOMPILING_EMULATOR="$supp/preload.sh" >/dev/null
  nice -n 10 cmake --build "$build"
  (cd "$build" && nice -n 10 "${xvfb[@]}" ctest --output-on-failure -j 1 --timeout 1800 "$@")
}

status=0
if [[ $which == all || $which == asan ]]; then
  ASAN_OPTIONS=detect_leaks=1:abort_on_error=0:detect_stack_use_after_return=0 \
  LSAN_OPTIONS=suppressions=$supp/lsan.supp:print_suppressions=0 \
  UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1:suppressions=$supp/ubsan.supp \
  ORVANE_PRELOAD_RUNTIME=libasan.so.8 \
    suite build-asan address,undefined "$@" || status=1
fi
if [[ $which == all || $which == tsan ]]; then
  TSAN_OPTIONS=suppressions=$supp/tsan.supp:print_suppressions=0:halt_on_error=0:second_deadlock_stack=1 \
  ORVANE_PRELOAD_RUNTIME=libtsan.so.2 \
  ORVANE_PRELOAD_EXTRA=$root/build-tsan/tests/liborvane_tsan_qmutex.so \
    suite build-tsan thread "$@" || status=1
fi
exit $status
