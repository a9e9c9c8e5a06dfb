#!/usr/bin/env bash
# Sets up, then builds and runs the whole test suite twice: a normal build, and one with
# AddressSanitizer and UndefinedBehaviorSanitizer.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
bash "$top/scripts/setup.sh"

echo "== normal build"
bash "$top/scripts/build.sh" build
(cd "$top/build" && ctest --output-on-failure -j "$(nproc)")

echo "== sanitizer build"
bash "$top/scripts/build.sh" build-asan -DNOTE_SANITIZE=ON -DNOTE_BENCH=OFF
(cd "$top/build-asan" && ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 \
  UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 ctest --output-on-failure -j "$(nproc)")
