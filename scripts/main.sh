#!/usr/bin/env bash
# Sets up, builds, and runs the main job.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
bash "$top/scripts/setup.sh"
bash "$top/scripts/build.sh" build
"$top/build/host/cli/notectl" demo
