#!/usr/bin/env bash
# Runs one fuzz target (fuzz/fuzz_TARGET.cpp) under libFuzzer with AddressSanitizer and
# UndefinedBehaviorSanitizer for SECONDS, with the XML dictionary and the committed corpus.
# New inputs go to build-fuzz/corpus/TARGET, crashes to build-fuzz/artifacts/TARGET/.
# Installs clang when it is missing (Debian 12, as root). Extra arguments go to libFuzzer.
# Usage: scripts/fuzz.sh TARGET SECONDS [libFuzzer options...]
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
if [ $# -lt 2 ]; then
  echo "usage: $0 TARGET SECONDS [libFuzzer options...]" >&2
  exit 2
fi
target=$1 seconds=$2
shift 2
[ -f "$top/fuzz/fuzz_$target.cpp" ] || { echo "fuzz.sh: no target $target in fuzz/" >&2; exit 2; }

# clang with its libFuzzer runtime (libclang-rt-14-dev on Debian 12).
has_libfuzzer() {
  command -v clang++ >/dev/null 2>&1 &&
    echo 'extern "C" int LLVMFuzzerTestOneInput(const char*, unsigned long) { return 0; }' |
      clang++ -x c++ -fsanitize=fuzzer,address - -o /dev/null >/dev/null 2>&1
}
if ! has_libfuzzer; then
  if [ "$(id -u)" -ne 0 ]; then
    echo "fuzz.sh: clang with libFuzzer is missing; installing it needs root" >&2
    exit 1
  fi
  apt-get update -qq && DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends clang libclang-rt-14-dev >/dev/null
  has_libfuzzer || { echo "fuzz.sh: clang cannot build a libFuzzer target" >&2; exit 1; }
fi

dir=$top/build-fuzz
CC=clang CXX=clang++ cmake -S "$top" -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DNOTE_FUZZ=ON \
  -DNOTE_SANITIZE=ON -DNOTE_TESTS=OFF -DNOTE_BENCH=OFF >/dev/null
nice -n 19 cmake --build "$dir" --target "fuzz_$target" -j 2 >/dev/null
mkdir -p "$dir/corpus/$target" "$dir/artifacts/$target" "$top/fuzz/corpus/$target"

cd "$dir"
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  nice -n 19 "$dir/fuzz/fuzz_$target" -dict="$top/fuzz/note.dict" -max_total_time="$seconds" \
  -artifact_prefix="$dir/artifacts/$target/" -print_final_stats=1 "$@" \
  "$dir/corpus/$target" "$top/fuzz/corpus/$target"
