#!/usr/bin/env bash
# The one command that sets up a fresh Debian 12 machine and tests
# everything: installs packages, builds Linux (plain and ASan+UBSan) and
# Windows, runs every test natively and under Wine, and ends with one line
# "N passed, N failed". Exits non-zero when anything failed.
set -uo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root"

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
  total_passed=$((total_passed + total - failed))
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

# shellcheck source=scripts/wine-env.sh
source "$root/scripts/wine-env.sh"
ov_wine_start
trap ov_wine_stop EXIT
run_preset windows
run_cpack windows

echo "${total_passed} passed, ${total_failed} failed"
[ "$total_failed" -eq 0 ]
