#!/usr/bin/env bash
# Configures and builds one tree.  Usage: build.sh DIR [extra cmake arguments...]
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
dir=$1; shift
cmake -S "$top" -B "$top/$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DNOTE_WERROR=ON "$@" >/dev/null
cmake --build "$top/$dir" -j "$(nproc)"
