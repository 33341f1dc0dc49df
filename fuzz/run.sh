#!/usr/bin/env bash
# Replays each fuzz target's committed corpus, then fuzzes it for a bounded
# time (new inputs go to a scratch corpus under the build directory; with
# --merge they are minimised into the committed one afterwards). Prints one
# line per target and exits non-zero when any target failed.
#
#   fuzz/run.sh [--seconds N] [--build DIR] [--merge] [TARGET...]
#
# TARGET is a name such as rule or reply (default: all). Build the targets
# first: cmake --preset fuzz && cmake --build --preset fuzz
set -uo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
seconds=15
build="$root/build/fuzz"
merge=0
targets=()
while [ $# -gt 0 ]; do
  case "$1" in
    --seconds) seconds=$2; shift 2 ;;
    --build) build=$2; shift 2 ;;
    --merge) merge=1; shift ;;
    -h|--help) sed -n '2,10p' "${BASH_SOURCE[0]}"; exit 0 ;;
    *) targets+=("$1"); shift ;;
  esac
done
if [ ${#targets[@]} -eq 0 ]; then
  targets=(rule ratelimit conn linkip link globalarg shaper acsname acsname_entries kvargs reply
           line_reader)
fi

work="$build/fuzz-work"
mkdir -p "$work"
# Leaks are findings too; a by-design leak would have to be released by the target.
export ASAN_OPTIONS="${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1}"
export UBSAN_OPTIONS="${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}"

# Flags a target needs beyond the common ones.
extra_flags() {
  case "$1" in
    # Room for replies of some 30 shaper records.
    reply) echo "-max_len=8192" ;;
    *) echo "" ;;
  esac
}

failed=0
for t in "${targets[@]}"; do
  bin="$build/fuzz/fuzz_$t"
  corpus="$root/fuzz/corpus/$t"
  dict="$root/fuzz/dict/$t.dict"
  log="$work/$t.log"
  if [ ! -x "$bin" ]; then
    echo "fuzz_$t: FAILED (not built: $bin)"
    failed=$((failed + 1))
    continue
  fi
  mkdir -p "$corpus" "$work/$t" "$work/artifacts"
  dict_flag=()
  [ -f "$dict" ] && dict_flag=(-dict="$dict")
  # shellcheck disable=SC2046
  if ! "$bin" -runs=0 $(extra_flags "$t") "$corpus" >"$log" 2>&1; then
    echo "fuzz_$t: FAILED replaying $corpus (see $log)"
    tail -n 30 "$log"
    failed=$((failed + 1))
    continue
  fi
  # shellcheck disable=SC2046
  if ! "$bin" -max_total_time="$seconds" -print_final_stats=1 -timeout=60 \
       -artifact_prefix="$work/artifacts/$t-" "${dict_flag[@]}" $(extra_flags "$t") \
       "$work/$t" "$corpus" >>"$log" 2>&1; then
    echo "fuzz_$t: FAILED after fuzzing (see $log; the input is in $work/artifacts)"
    grep -E -A 30 '^==[0-9]+==|fuzz check failed|runtime error' "$log" | head -n 40
    failed=$((failed + 1))
    continue
  fi
  execs=$(sed -nE 's/^stat::number_of_executed_units: *([0-9]+)/\1/p' "$log" | tail -n 1)
  size=$(find "$corpus" "$work/$t" -type f | wc -l)
  if [ "$merge" -eq 1 ]; then
    # shellcheck disable=SC2046
    "$bin" -merge=1 $(extra_flags "$t") "$corpus" "$work/$t" >>"$log" 2>&1
    size=$(find "$corpus" -type f | wc -l)
  fi
  echo "fuzz_$t: passed (corpus replayed, ${seconds} s, ${execs:-?} executions, corpus ${size} inputs)"
done
[ "$failed" -eq 0 ]
