#!/usr/bin/env bash
# Sets up, builds and runs every test (no display needed: GUI tests run offscreen), then builds the same
# suite with AddressSanitizer and UndefinedBehaviorSanitizer into build-asan/ and runs it again there.
# TAVRINOX_SANITIZERS=0 leaves the second build out.
set -euo pipefail
top=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build_dir=${TAVRINOX_BUILD_DIR:-$top/build}
bash "$top/scripts/setup.sh" "$@"
ctest --test-dir "$build_dir" --output-on-failure --parallel "$(nproc)"

if [ "${TAVRINOX_SANITIZERS:-1}" != 0 ]; then
    asan_dir=${TAVRINOX_ASAN_BUILD_DIR:-$top/build-asan}
    flags="-fsanitize=address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer"
    cmake -S "$top" -B "$asan_dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTAVRINOX_BUILD_BENCHMARKS=OFF \
        -DCMAKE_CXX_FLAGS="$flags" -DCMAKE_EXE_LINKER_FLAGS="$flags" "$@"
    cmake --build "$asan_dir" --parallel "$(nproc)"
    # The crash table preloads its kill shim (built without sanitizers) into children ahead of the
    # sanitizer runtime, which would otherwise refuse to start. Leaks are reported: Qt's own
    # allocations leave none behind in these programs. The cross-compile check already ran above.
    ASAN_OPTIONS=verify_asan_link_order=0 UBSAN_OPTIONS=print_stacktrace=1 \
        ctest --test-dir "$asan_dir" --output-on-failure --parallel "$(nproc)" -E '^tst_windowscompile$'
fi
