#!/usr/bin/env bash
# Sets up, builds and starts the program (needs a display).
set -euo pipefail
top=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
bash "$top/scripts/setup.sh" "$@"
exec "${TAVRINOX_BUILD_DIR:-$top/build}/src/TavrinoxConfig"
