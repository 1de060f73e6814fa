#!/bin/sh
# Runs one test with the sanitizer runtime (ORVANE_PRELOAD_RUNTIME, default libasan.so.8), Mesa's driver and libdbus preloaded, so that libraries the
# test closes before the leak check keep a module name the suppressions can match. Only the test
# gets the preload: Xvfb, the shell and ctest stay as they are. ORVANE_PRELOAD_EXTRA, if set,
# comes right after the runtime (the ThreadSanitizer run's QMutex shim).
lib=/usr/lib/x86_64-linux-gnu
LD_PRELOAD="$lib/${ORVANE_PRELOAD_RUNTIME:-libasan.so.8}${ORVANE_PRELOAD_EXTRA:+:$ORVANE_PRELOAD_EXTRA}:$lib/dri/swrast_dri.so:$lib/libdbus-1.so.3" exec "$@"
