#!/usr/bin/env bash
# The one command that sets up a fresh Debian 12 machine and tests
# everything: installs packages, builds Linux (plain and ASan+UBSan) and
# Windows, runs every test natively and under Wine, and ends with one line
# "N passed, N failed". Exits non-zero when anything failed.
set -uo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root" || exit 1

"$root/scripts/setup-deps.sh" || { echo "setup failed"; echo "0 passed, 1 failed"; exit 1; }

logdir="$root/build/logs"
mkdir -p "$logdir"
total_passed=0
total_failed=0

# Builds a preset and runs its tests; adds the counts to the totals.
run_preset() {
  local preset=$1
  echo "== $preset: configure and build"
  if ! cmake --preset "$preset" >"$logdir/$preset-configure.log" 2>&1; then
    cat "$logdir/$preset-configure.log"
    echo "== $preset: configure FAILED"
    total_failed=$((total_failed + 1))
    return
  fi
  if ! cmake --build --preset "$preset" >"$logdir/$preset-build.log" 2>&1; then
    tail -n 60 "$logdir/$preset-build.log"
    echo "== $preset: build FAILED"
    total_failed=$((total_failed + 1))
    return
  fi
  echo "== $preset: test"
  ctest --preset "$preset" 2>&1 | tee "$logdir/$preset-test.log" | grep -E -v '(^ *[0-9]+/[0-9]+ Test +#[0-9]+: .* Passed|^ +Start +[0-9]+: )' || true
  local summary
  summary=$(grep -E '[0-9]+ tests failed out of [0-9]+' "$logdir/$preset-test.log" | tail -n 1)
  if [ -z "$summary" ]; then
    if grep -q 'No tests were found' "$logdir/$preset-test.log"; then
      return
    fi
    echo "== $preset: no test summary"
    total_failed=$((total_failed + 1))
    return
  fi
  local failed total
  failed=$(sed -E 's/.* ([0-9]+) tests failed out of ([0-9]+).*/\1/' <<<"$summary")
  total=$(sed -E 's/.* ([0-9]+) tests failed out of ([0-9]+).*/\2/' <<<"$summary")
  # A skipped test ran nothing: it counts as neither passed nor failed.
  local skipped
  skipped=$(grep -cE '^[[:space:]]*[0-9]+ - .*\(Skipped\)$' "$logdir/$preset-test.log" || true)
  if [ "$skipped" -gt 0 ]; then
    echo "== $preset: $skipped skipped"
  fi
  total_passed=$((total_passed + total - failed - skipped))
  total_failed=$((total_failed + failed))
}

# Builds a preset's packages with cpack (DEB on Linux, ZIP on Windows).
run_cpack() {
  local preset=$1
  echo "== $preset: packages"
  if ! (cd "$root/build/$preset" && cpack) >"$logdir/$preset-cpack.log" 2>&1; then
    tail -n 30 "$logdir/$preset-cpack.log"
    echo "== $preset: packaging FAILED"
    total_failed=$((total_failed + 1))
    return
  fi
  grep -E '^CPack: - package: ' "$logdir/$preset-cpack.log" || true
}

run_preset linux
run_cpack linux
run_preset linux-asan

# The benchmarks are built, never run here (scripts/bench.sh runs them).
echo "== bench: configure and build (not run)"
if ! { cmake --preset bench && cmake --build --preset bench; } >"$logdir/bench-build.log" 2>&1; then
  tail -n 60 "$logdir/bench-build.log"
  echo "== bench: build FAILED"
  total_failed=$((total_failed + 1))
fi

# Fuzz smoke: every target replays its committed corpus, then fuzzes for 15 s
# (fuzz/run.sh); each target counts as one test.
echo "== fuzz: configure, build, replay the corpora and fuzz briefly"
if ! { cmake --preset fuzz && cmake --build --preset fuzz; } >"$logdir/fuzz-build.log" 2>&1; then
  tail -n 60 "$logdir/fuzz-build.log"
  echo "== fuzz: build FAILED"
  total_failed=$((total_failed + 1))
else
  "$root/fuzz/run.sh" --seconds 15 2>&1 | tee "$logdir/fuzz.log"
  total_passed=$((total_passed + $(grep -cE '^fuzz_[a-z_]+: passed' "$logdir/fuzz.log")))
  total_failed=$((total_failed + $(grep -cE '^fuzz_[a-z_]+: FAILED' "$logdir/fuzz.log")))
fi

# memcheck over a handful of pdtool runs (a dynamically linked build of its
# own); each run counts as one test.
echo "== valgrind: pdtool runs under memcheck"
"$root/scripts/valgrind-check.sh" "$root/build/valgrind" 2>&1 | tee "$logdir/valgrind.log"
vg_summary=$(sed -nE 's/^valgrind-check: ([0-9]+) of ([0-9]+) runs as expected$/\1 \2/p' "$logdir/valgrind.log")
if [ -n "$vg_summary" ]; then
  read -r vg_ok vg_all <<<"$vg_summary"
  total_passed=$((total_passed + vg_ok))
  total_failed=$((total_failed + vg_all - vg_ok))
else
  echo "== valgrind: no summary"
  total_failed=$((total_failed + 1))
fi

# shellcheck source=scripts/wine-env.sh
source "$root/scripts/wine-env.sh"
ov_wine_start
trap ov_wine_stop EXIT
run_preset windows
run_cpack windows

# For the record, not a gate: how much of the C/C++ code is tests.
share_tool="$root/../shared/tools/test-share.sh"
if [ -f "$share_tool" ]; then
  echo "== $(bash "$share_tool")"
fi

echo "${total_passed} passed, ${total_failed} failed"
[ "$total_failed" -eq 0 ]
