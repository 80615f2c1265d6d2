#!/usr/bin/env bash
# Installs what is missing (Debian/Ubuntu packages only), then configures and builds into build/.
# Extra arguments go to CMake, for example -DTAVRINOX_UPDATE_SERVER=https://updates.example.com
set -euo pipefail

top=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build_dir=${TAVRINOX_BUILD_DIR:-$top/build}

packages=(
    cmake ninja-build g++ pkg-config
    qt6-base-dev qt6-base-dev-tools qt6-qpa-plugins libgl-dev
    libarchive-dev libarchive-tools libssl-dev
    g++-mingw-w64-x86-64-posix
    exfatprogs exfat-fuse fuse3 e2fsprogs eatmydata
    openssl curl unzip
    xvfb xauth imagemagick
    dpkg-dev desktop-file-utils appstream lintian python3-yaml
)

missing=()
for package in "${packages[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed"; then
        missing+=("$package")
    fi
done

if [ ${#missing[@]} -gt 0 ]; then
    as_root=()
    [ "$(id -u)" -eq 0 ] || as_root=(sudo)
    echo "Installing: ${missing[*]}"
    "${as_root[@]}" apt-get update -qq
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq "${missing[@]}" </dev/null
fi

cmake -S "$top" -B "$build_dir" -G Ninja -DCMAKE_BUILD_TYPE=Release "$@"
cmake --build "$build_dir" --parallel "$(nproc)"
