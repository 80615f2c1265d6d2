#!/usr/bin/env bash
# Sets up, builds and runs every test (no display needed: GUI tests run offscreen).
set -euo pipefail
top=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build_dir=${TAVRINOX_BUILD_DIR:-$top/build}
bash "$top/scripts/setup.sh" "$@"
ctest --test-dir "$build_dir" --output-on-failure --parallel "$(nproc)"
