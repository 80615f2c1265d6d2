#!/usr/bin/env bash
# Starts the program under Xvfb and saves a PNG picture of its window, so anyone can look at
# what a user sees. Usage: scripts/screenshot.sh [output.png]   (default: docs/screenshot.png)
# Builds first when the program is missing. Uses Debian's xvfb and imagemagick.
set -euo pipefail
top=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build_dir=${TAVRINOX_BUILD_DIR:-$top/build}
output=$(realpath -m "${1:-$top/docs/screenshot.png}")
program="$build_dir/src/TavrinoxConfig"

[ -x "$program" ] || bash "$top/scripts/setup.sh"
mkdir -p "$(dirname "$output")"

display=:$((90 + RANDOM % 100))
Xvfb "$display" -screen 0 1920x1080x24 -nolisten tcp &
xvfb_pid=$!
trap 'kill "$app_pid" "$xvfb_pid" 2>/dev/null || true' EXIT
sleep 1

DISPLAY=$display QT_QPA_PLATFORM=xcb "$program" &
app_pid=$!
sleep "${TAVRINOX_SCREENSHOT_DELAY:-3}"

# The first `convert` or `import` on PATH may not be ImageMagick's: call it by its full path.
DISPLAY=$display /usr/bin/import -window "Tavrinox - Gerenciador" "$output"
echo "Saved $output"
