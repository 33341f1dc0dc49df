#!/usr/bin/env bash
# Runs every benchmark of bench/ and prints the figures BENCHMARKS.md quotes:
# converters against json-c's parse, get printing, one pdtool run against the
# minimal client (hyperfine, medians, peak RSS) and agentsim under 1, 4 and 16
# concurrent clients. Builds the bench preset first. Everything stays on this
# machine: the agent is a private agentsim on a socket in a temporary directory.
#
# Knobs (environment): REPS (Google Benchmark repetitions, 10), RUNS (hyperfine
# runs per command, 1000), QUIET_WAIT (seconds to wait for a 1-minute load
# below QUIET_LOAD, 600), QUIET_LOAD (0.5), LOAD_REQUESTS (per client, 20000),
# RT=1 (run agentsim, hyperfine and the load driver at real-time priority,
# chrt -f 50, so other work on a shared machine cannot preempt them; needs root).
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root"
reps=${REPS:-10}
runs=${RUNS:-1000}
quiet_wait=${QUIET_WAIT:-600}
quiet_load=${QUIET_LOAD:-0.5}
load_requests=${LOAD_REQUESTS:-20000}
rt=()
[ "${RT:-0}" = 1 ] && rt=(chrt -f 50)

as_root() {
  if [ "$(id -u)" -eq 0 ]; then "$@"; else sudo "$@"; fi
}

# The tools come from Debian: hyperfine, GNU time, jq, Google Benchmark.
missing=()
command -v hyperfine >/dev/null || missing+=(hyperfine)
[ -x /usr/bin/time ] || missing+=(time)
command -v jq >/dev/null || missing+=(jq)
dpkg-query -W -f='${Status}' libbenchmark-dev 2>/dev/null | grep -q "install ok installed" ||
  missing+=(libbenchmark-dev)
if [ ${#missing[@]} -gt 0 ]; then
  echo "bench: installing ${missing[*]}"
  as_root apt-get update -q
  DEBIAN_FRONTEND=noninteractive as_root apt-get install -y -q --no-install-recommends "${missing[@]}"
fi

echo "== build (bench preset)"
cmake --preset bench >/dev/null
cmake --build --preset bench >/dev/null
bin="$root/build/bench"

echo "== machine"
echo "cpu: $(sed -n 's/^model name[[:space:]]*: //p' /proc/cpuinfo | head -n 1) x $(nproc)"
echo "kernel: $(uname -r); $(grep -m1 PRETTY_NAME /etc/os-release | cut -d'"' -f2)"
echo "compiler: $(g++ --version | head -n 1); json-c $(dpkg-query -W -f='${Version}' libjson-c-dev)"
echo "load: $(cut -d' ' -f1-3 /proc/loadavg)"

gbench=(--benchmark_repetitions="$reps" --benchmark_enable_random_interleaving=true
        --benchmark_report_aggregates_only=true --benchmark_min_time=0.2)

echo
echo "== converters against json-c's json_tokener_parse + json_object_put"
"$bin/bench/bench_convert" "${gbench[@]}" | sed -n '/^Converter cost/,$p'

echo
echo "== get printing"
"$bin/bench/bench_print" "${gbench[@]}" | sed -n '/^Get printing/,$p'

# A private agent for the rest; stopped on exit.
# shellcheck source=scripts/private-agent.sh
source "$root/scripts/private-agent.sh"
ov_private_work pdtool-bench
ov_private_agent "${rt[@]}" "$bin/agentsim/agentsim" --instances 16 ||
  { echo "bench: agentsim did not start"; exit 1; }

sample='{"RateLimitId": 1, "BucketRate": 0, "CBS": 0, "TokenBonus": 0, "Type": 1, "PerIpBucketRate": 0, "PerIpCBS": 0, "UpdateType": 1, "UpdateBucketRate": 0, "UpdateCBS": 0, "UpdateTokenBonus": 0, "UpdatePerIpBucketRate": 0, "UpdatePerIpCBS": 0, "PersistentFlag": true}'
pdtool=("$bin/cli/pdtool" "set_ratelimit/$sample")
minimal=("$bin/bench/minimal_client")
"${pdtool[@]}" | grep -qx 'Operation success' || { echo "bench: pdtool did not succeed"; exit 1; }
"${minimal[@]}" || { echo "bench: the minimal client did not succeed"; exit 1; }

echo
echo "== one run: pdtool set_ratelimit/<usage sample> against the minimal client"
waited=0
while awk -v max="$quiet_load" '{ exit !($1 >= max) }' /proc/loadavg && [ "$waited" -lt "$quiet_wait" ]; do
  [ "$waited" -eq 0 ] && echo "waiting up to ${quiet_wait}s for a 1-minute load below $quiet_load"
  sleep 10
  waited=$((waited + 10))
done
echo "load before timing: $(cut -d' ' -f1-3 /proc/loadavg)${rt[*]:+ (timed under ${rt[*]})}"
"${rt[@]}" hyperfine -N --style basic --warmup 50 --runs "$runs" --export-json "$work/run.json" \
  -n minimal_client "${minimal[*]}" \
  -n pdtool "'${pdtool[0]}' '${pdtool[1]}'" >/dev/null
echo "load after timing: $(cut -d' ' -f1-3 /proc/loadavg)"
jq -r '.results[] | "\(.command): median \(.median * 1e6 | floor) us, mean \(.mean * 1e6 | floor) us, min \(.min * 1e6 | floor) us, user \(.user * 1e6 | floor) us, system \(.system * 1e6 | floor) us"' "$work/run.json"
jq -r '(.results | map({(.command): .median}) | add) as $m
  | "ratio of medians pdtool / minimal_client: \($m.pdtool / $m.minimal_client * 1000 | round / 1000) (target <= 1.15)"' \
  "$work/run.json"

# Peak RSS: the median of 21 runs of each (GNU time's maximum resident set).
peak_rss() {
  for _ in $(seq 1 21); do
    /usr/bin/time -f '%M' "$@" 2>&1 >/dev/null | tail -n 1
  done | sort -n | sed -n '11p'
}
rss_min=$(peak_rss "${minimal[@]}")
rss_pd=$(peak_rss "${pdtool[@]}")
echo "peak RSS: minimal_client ${rss_min} kB, pdtool ${rss_pd} kB, ratio" \
  "$(awk -v a="$rss_pd" -v b="$rss_min" 'BEGIN { printf "%.3f", a / b }') (target <= 1.5)"

echo
echo "== agentsim: requests/s and latency (one connection per client, then one per request)"
for clients in 1 4 16; do
  "${rt[@]}" "$bin/bench/bench_load" --clients "$clients" --requests "$load_requests" --seconds 20 \
    --mode keep
done
for clients in 1 4 16; do
  "${rt[@]}" "$bin/bench/bench_load" --clients "$clients" --requests $((load_requests / 10)) \
    --seconds 20 \
    --mode connect
done
echo "(targets: >= 20000 requests/s with 4 clients, p99 < 1000 us)"

# --- pdctl: a whole file over one connection ------------------------------
pdctl="$bin/pdctl/pdctl"
if [ -x "$pdctl" ]; then
  echo
  echo "== pdctl apply: 10000 set_ratelimit lines, against 10000 pdtool runs and the one-connection load client"
  lines=10000
  for i in $(seq 1 "$lines"); do echo "set_ratelimit/$sample"; done >"$work/apply.conf"
  ms() { date +%s%N; }
  t0=$(ms)
  "${rt[@]}" "$pdctl" apply "$work/apply.conf" >"$work/apply.out"
  t1=$(ms)
  tail -n 1 "$work/apply.out"
  apply_us=$(((t1 - t0) / 1000))
  t0=$(ms)
  for _ in $(seq 1 "$lines"); do "${pdtool[@]}" >/dev/null; done
  t1=$(ms)
  runs_us=$(((t1 - t0) / 1000))
  load_line=$("${rt[@]}" "$bin/bench/bench_load" --clients 1 --requests "$lines" --seconds 60 --mode keep)
  echo "$load_line"
  load_s=$(sed -nE 's/.* seconds=([0-9.]+) .*/\1/p' <<<"$load_line")
  echo "pdctl apply: ${apply_us} us; ${lines} pdtool runs: ${runs_us} us; bench_load keep: ${load_s} s"
  awk -v a="$apply_us" -v r="$runs_us" -v l="$load_s" 'BEGIN {
    printf "pdtool runs / pdctl apply: %.1fx (target >= 30)\n", r / a
    if (l > 0) printf "pdctl apply / bench_load keep: %.2fx (target <= 1.5)\n", a / (l * 1e6) }'

  echo
  echo "== pdctl check: 10000 lines of the usage samples of every record kind"
  # The manual page's 46 command examples, their shell quoting taken off.
  awk '/^# COMMANDS/ {on = 1; next} /^# / {on = 0}
       on && /^\t*```/ {block = !block; next}
       on && block {sub(/^\t+/, ""); print}' "$root/docs/pdtool.1.scd" >"$work/examples.sh"
  (pdtool() { printf '%s\n' "${1//$'\n'/ }"; } && source "$work/examples.sh") >"$work/samples.conf"
  n=$(wc -l <"$work/samples.conf")
  : >"$work/check.conf"
  while [ "$(wc -l <"$work/check.conf")" -lt "$lines" ]; do cat "$work/samples.conf" >>"$work/check.conf"; done
  head -n "$lines" "$work/check.conf" >"$work/check10k.conf"
  t0=$(ms)
  "$pdctl" check "$work/check10k.conf" >/dev/null || true
  t1=$(ms)
  awk -v n="$lines" -v us=$(((t1 - t0) / 1000)) -v k="$n" \
    'BEGIN { printf "check: %d lines (%d distinct samples) in %d us: %.0f lines/s (target >= 50000)\n", n, k, us, n / (us / 1e6) }'

  echo
  echo "== pdctl peak RSS over 1,000,000 lines (GNU time)"
  for _ in $(seq 1 100); do cat "$work/apply.conf"; done >"$work/apply1m.conf"
  for _ in $(seq 1 100); do cat "$work/check10k.conf"; done >"$work/check1m.conf"
  rss_apply=$(/usr/bin/time -f '%M' "$pdctl" apply "$work/apply1m.conf" 2>&1 >/dev/null | tail -n 1)
  rss_check=$(/usr/bin/time -f '%M' "$pdctl" check "$work/check1m.conf" 2>&1 >/dev/null | tail -n 1)
  echo "peak RSS: apply ${rss_apply} kB, check ${rss_check} kB (target < 16384 kB each)"
fi
