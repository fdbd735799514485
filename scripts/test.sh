#!/usr/bin/env bash
# Sets up, builds and runs every test: the g++ build, the clang build under the address and
# undefined-behaviour sanitizers, a formatting check, the benchmarks (as a smoke run), a plain
# Release build with the README's examples built against its install, a short, bounded run of
# every fuzz target, and the COM servers under Wine with real COM clients.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh --com

FUZZ_SECONDS=${FUZZ_SECONDS:-20}
jobs=$(nproc)

step() { printf '\n== %s\n' "$*"; }

# Totals over every ctest run, for the closing line.
passed=0
failed=0
run_ctest() {
  local log
  log=$(mktemp)
  local status=0
  ctest "$@" 2>&1 | tee "$log" || status=$?
  local total failures
  total=$(sed -n 's/.*tests passed, \([0-9]*\) tests failed out of \([0-9]*\).*/\2/p' "$log" | tail -n 1)
  failures=$(sed -n 's/.*tests passed, \([0-9]*\) tests failed out of \([0-9]*\).*/\1/p' "$log" | tail -n 1)
  rm -f "$log"
  passed=$((passed + ${total:-0} - ${failures:-0}))
  failed=$((failed + ${failures:-0}))
  return "$status"
}

step "formatting"
mapfile -t sources < <(git ls-files '*.cpp' '*.h' 2>/dev/null || find core types sim tools tests bench examples -name '*.cpp' -o -name '*.h')
clang-format --dry-run --Werror "${sources[@]}"

step "g++ build and tests (dev)"
cmake --preset dev >/dev/null
cmake --build --preset dev -j "$jobs"
run_ctest --preset dev -j "$jobs"

step "clang build and tests under address and undefined-behaviour sanitizers (asan)"
cmake --preset asan >/dev/null
cmake --build --preset asan -j "$jobs"
run_ctest --preset asan -j "$jobs"

step "release build, benchmarks as a smoke run"
cmake --preset release >/dev/null
cmake --build --preset release -j "$jobs"
for bench in build/release/bench/bench_*; do
  [ -x "$bench" ] || continue
  "$bench" --benchmark_min_time=0.01 >/dev/null
  echo "$(basename "$bench") ran"
  passed=$((passed + 1))
done

step "plain Release build with no preset, as a packager builds it; the README's examples against its install"
# Only the presets turn warnings into errors; this build must still have none, at -O3.
plain_log=build/plain-build.log
cmake -S . -B build/plain -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build/plain -j "$jobs" >"$plain_log" 2>&1 || { cat "$plain_log"; exit 1; }
if grep -q 'warning:' "$plain_log"; then
  grep -B 2 -A 6 'warning:' "$plain_log"
  echo "FAILED: the plain Release build warns"
  failed=$((failed + 1))
elif grep -q -- '-Werror' build/plain/compile_commands.json ||
  ! grep -q -- '-Werror' build/dev/compile_commands.json; then
  echo "FAILED: warnings must be errors in the presets' builds and only there"
  failed=$((failed + 1))
else
  echo "plain Release build: no warnings, no -Werror"
  passed=$((passed + 1))
fi
rm -rf build/plain-install
cmake --install build/plain --prefix build/plain-install >/dev/null
if tests/package/check_readme_examples.sh build/plain-install build/plain-examples; then
  passed=$((passed + 1))
else
  failed=$((failed + 1))
fi

step "fuzz targets, ${FUZZ_SECONDS} s each"
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -j "$jobs"
for target in build/fuzz/tests/fuzz/fuzz_*; do
  [ -x "$target" ] || continue
  corpus=$(mktemp -d)
  seeds="tests/fuzz/seeds/$(basename "$target")"  # read-only starting inputs, where a target has them
  [ -d "$seeds" ] || seeds=""
  "$target" -max_total_time="$FUZZ_SECONDS" "$corpus" $seeds 2>&1 | tail -n 1
  rm -rf "$corpus"
  passed=$((passed + 1))
done

step "COM servers under Wine, 64-bit and 32-bit"
com_log=$(mktemp)
com_status=0
scripts/com-test.sh 2>&1 | tee "$com_log" || com_status=$?
com_line=$(sed -n 's/^com: \([0-9]*\) passed, \([0-9]*\) failed$/\1 \2/p' "$com_log" | tail -n 1)
rm -f "$com_log"
if [ -n "$com_line" ]; then
  passed=$((passed + ${com_line% *}))
  failed=$((failed + ${com_line#* }))
elif [ "$com_status" -ne 0 ]; then
  failed=$((failed + 1))
fi

step "summary"
echo "tests: $passed passed, $failed failed"
[ "$failed" -eq 0 ]
