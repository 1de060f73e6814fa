#!/usr/bin/env bash
# Runs every fuzz driver long: ORVANE_FUZZ_RUNS inputs each (default 1,000,000) from
# ORVANE_FUZZ_SEED, in the sanitizer build (build-asan, made by scripts/check.sh asan) unless
# BUILD_DIR names another. Prints one `fuzz <target> inputs <n> seconds <s>` line per target.
#   scripts/fuzz.sh [target-regex]
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
build=${BUILD_DIR:-build-asan}
export ORVANE_FUZZ_RUNS=${ORVANE_FUZZ_RUNS:-1000000}
export LIBGL_ALWAYS_SOFTWARE=1
export LSAN_OPTIONS=suppressions=$root/tests/sanitizers/lsan.supp:print_suppressions=0
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
launch=()
[[ $build == *asan* ]] && launch=("$root/tests/sanitizers/preload.sh")
pattern=${1:-.}
status=0
for target in select_param_fuzz_test model_reader_fuzz_test shader_registration_fuzz_gl_test \
  live_cloud_patch_fuzz_gl_test; do
  [[ $target =~ $pattern ]] || continue
  nice -n 10 cmake --build "$build" --target "$target" >/dev/null
  echo "== $target"
  if ! nice -n 10 xvfb-run -a -s "-screen 0 1280x1024x24 -nolisten tcp" \
    "${launch[@]}" "$build/tests/fuzz/$target" 2>&1 | grep -E "^fuzz |FAILED|PASSED|ERROR|runtime error"; then
    status=1
  fi
done
exit $status
