#!/usr/bin/env bash
# Checks that the test suite catches real faults. Each file in tests/mutants is one single-point fault
# of the kind real bugs are made of, as a patch against the product ("Fault:" says what it breaks,
# "Tests:" which CTest entries should catch it). For each fault this applies the patch to a copy of the
# tree, rebuilds what changed, runs those tests (stopping at the first failure) and reverts the patch;
# it prints "caught" or "MISSED" per fault and the rate at the end. The working tree is never touched.
#
#   scripts/mutants.sh [word]        only the faults whose file name contains word
#   TAVRINOX_MUTANTS_DIR=dir         where the copy and its build live (default: build-mutants/)
#   TAVRINOX_MUTANTS_TESTS=tree      take tests/ from another checkout (another version of the suite);
#                                    its whole suite runs for each fault, since its test names differ
#   TAVRINOX_MUTANTS_EXCLUDE=regex   CTest entries never to run
set -uo pipefail
top=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
work=${TAVRINOX_MUTANTS_DIR:-$top/build-mutants}
tree=$work/tree
build=$work/build

mkdir -p "$tree"
# A fresh copy of the product and its tests; the build folder is kept, and only files whose content
# differs are copied (getting a new time), so rebuilds stay incremental from one run to the next.
(cd "$top" && git ls-files -z --cached --others --exclude-standard) | while IFS= read -r -d '' file; do
    cmp -s "$top/$file" "$tree/$file" || { mkdir -p "$tree/$(dirname "$file")" && cp "$top/$file" "$tree/$file"; }
done
if [ -n "${TAVRINOX_MUTANTS_TESTS:-}" ]; then
    rm -rf "$tree/tests" && cp -r "$TAVRINOX_MUTANTS_TESTS/tests" "$tree/tests"
fi
cmake -S "$tree" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DTAVRINOX_BUILD_BENCHMARKS=OFF >/dev/null &&
    cmake --build "$build" --parallel "${TAVRINOX_JOBS:-2}" >/dev/null || { echo "the unchanged tree does not build"; exit 2; }

# The copy lies inside the repository's folder; a ceiling keeps git from taking it for part of it.
apply() { GIT_CEILING_DIRECTORIES=$work git -C "$tree" apply "${@:2}" "$1"; }

caught=0 total=0 missed=()
for patch in "$top"/tests/mutants/*"${1:-}"*.patch; do
    name=$(basename "$patch" .patch)
    tests=$(sed -n 's/^Tests: //p' "$patch")
    apply "$patch" --check 2>/dev/null || { echo "$name: does not apply"; continue; }
    apply "$patch"
    if ! cmake --build "$build" --parallel "${TAVRINOX_JOBS:-2}" >/dev/null 2>&1; then
        echo "$name: does not build"
    else
        total=$((total + 1))
        if [ -n "${TAVRINOX_MUTANTS_TESTS:-}" ]; then
            selection=()
        else
            selection=(-R "^($(echo "$tests" | tr ' ' '|'))\$")
        fi
        if ctest --test-dir "$build" "${selection[@]}" -E "${TAVRINOX_MUTANTS_EXCLUDE:-^$}" --stop-on-failure --timeout 900 >/dev/null 2>&1; then
            # A test that skipped (no root, no loop device left) may be why; say so.
            skips=$(grep -c '^SKIP' "$build/Testing/Temporary/LastTest.log" 2>/dev/null)
            [ "${skips:-0}" = 0 ] && skips=
            echo "$name: MISSED ($(sed -n 's/^Fault: //p' "$patch"))${skips:+; $skips tests skipped}"
            missed+=("$name")
        else
            echo "$name: caught"
            caught=$((caught + 1))
        fi
    fi
    apply "$patch" -R
done
echo "caught $caught of $total${missed:+; missed: ${missed[*]}}"
