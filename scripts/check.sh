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
lib=/usr/lib/x86_64-linux-gnu
# Libraries that are loaded with dlopen and closed before the leak check are preloaded, so that
# their frames keep a name the suppressions can match. The sanitizer runtime must come first.
keep="$lib/dri/swrast_dri.so:$lib/libdbus-1.so.3"

suite() {
  local build=$1 sanitize=$2
  shift 2
  cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DORVANE_BUILD_BENCH=OFF \
    -DORVANE_SANITIZE="$sanitize" >/dev/null
  nice -n 10 cmake --build "$build"
  (cd "$build" && nice -n 10 "${xvfb[@]}" ctest --output-on-failure -j 1 --timeout 1800 "$@")
}

status=0
if [[ $which == all || $which == asan ]]; then
  ASAN_OPTIONS=detect_leaks=1:abort_on_error=0:detect_stack_use_after_return=0 \
  LSAN_OPTIONS=suppressions=$supp/lsan.supp:print_suppressions=0 \
  UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1:suppressions=$supp/ubsan.supp \
  LD_PRELOAD="$lib/libasan.so.8:$keep" \
    suite build-asan address,undefined "$@" || status=1
fi
if [[ $which == all || $which == tsan ]]; then
  TSAN_OPTIONS=suppressions=$supp/tsan.supp:print_suppressions=0:halt_on_error=0:second_deadlock_stack=1 \
  LD_PRELOAD="$lib/libtsan.so.2:$keep" \
    suite build-tsan thread "$@" || status=1
fi
exit $status
