#!/usr/bin/env bash
# Runs a handful of pdtool commands under valgrind's memcheck against a
# private agentsim and reports, per run, memcheck's errors and what it found
# lost. Every run must be free of errors and leaks, except get_shaper_conf:
# its JSON text is left to the process's end by design, so exactly that one
# block must be definitely lost (allocated by OV_AgentShaperConfToJsonStr),
# and pdtool's AGENT memory module must report it. Exits non-zero otherwise.
#
# memcheck cannot follow the heap of a static program, so pdtool and agentsim
# are built here with the linux preset's flags but pdtool linked dynamically
# (OV_STATIC_PDTOOL=OFF), in build/valgrind (or BUILD_DIR).
#
#   scripts/valgrind-check.sh [BUILD_DIR]
set -uo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=${1:-$root/build/valgrind}
command -v valgrind >/dev/null || { echo "valgrind-check: valgrind is not installed"; exit 2; }
if ! { cmake --preset linux -B "$build" -DOV_STATIC_PDTOOL=OFF -DOV_BUILD_TESTS=OFF &&
       cmake --build "$build" -j2 --target pdtool agentsim; } >"$build.log" 2>&1; then
  tail -n 30 "$build.log"
  echo "valgrind-check: the build failed"
  exit 2
fi
pdtool="$build/cli/pdtool"
agentsim="$build/agentsim/agentsim"

# shellcheck source=scripts/private-agent.sh
source "$root/scripts/private-agent.sh"
ov_private_work ovvalgrind
export OV_PIPE_NAME=vgcheck
ov_private_agent "$agentsim" --pipe-name "$OV_PIPE_NAME" --sa-role 1 --sa-master-ip 10.0.0.1 ||
  { echo "valgrind-check: agentsim did not start"; exit 2; }

shaper='{"shaperId": 1, "persistentFlag": true, "wanKbps": 100000, "wanInKbps": 100000, "inBurstMs": 100, "outBurstMs": 100, "bandDist": [2, 2, 8, 8, 8, 8, 8, 0], "bandLimit": {"sharePriority": 2, "num": 1, "bandLimit": [{"priority": 2, "inkbps": 1000000, "outkbps": 1000000}]}}'
commands=(
  ""
  'set_ratelimit/{"RateLimitId": 1, "BucketRate": 125000, "CBS": 250000, "Type": 0, "PersistentFlag": true}'
  'del_ratelimit/id=1'
  'set_policy/{"Table": 0, "Zone": 1, "Id": 10, "RuleVer": 1, "VpnId": 1, "Match": {"SrcIpNum": 1, "SrcIp": [{"IpType": 0, "Ip": "192.168.10.0", "Mask": 24}]}, "Actions": {"OutputType": 1}}'
  'del_policy/zone=1 id=10'
  'set_tunnel/{"VpnId": 1, "Label": 100, "Vni": 1, "NetId": 1, "PeerIp": "203.0.113.10", "TimeStamp": 1767225600000, "InputKey": "3c0f7a21d94e5b86", "KeyLength": 8}'
  'set_acsname/{"id": 5, "ascname": "corp", "version": 1, "iplist": ["10.1.0.0/16"], "domainlist": ["example.com"]}'
  "set_shaper_conf/$shaper"
  'get_shaper_conf/shaperId=1'
  'get_shaper_tbl'
  'get_sa_cluster'
  'set_engine_srtt/value=30 wanid=1'
  'set_ratelimit/{"RateLimitId": 4294967295}'
  'bogus_command'
)

failed=0
n=0
for cmd in "${commands[@]}"; do
  n=$((n + 1))
  log="$work/vg-$n.log"
  args=()
  [ -n "$cmd" ] && args=("$cmd")
  valgrind --tool=memcheck --leak-check=full --show-leak-kinds=definite,indirect,possible \
    --errors-for-leak-kinds=none --error-exitcode=99 --log-file="$log" \
    "$pdtool" "${args[@]}" >"$work/out-$n.txt" 2>&1
  status=$?
  errors=$(sed -nE 's/.*ERROR SUMMARY: ([0-9]+) errors.*/\1/p' "$log" | tail -n 1)
  lost=$(sed -nE 's/.*definitely lost: ([0-9,]+) bytes in ([0-9,]+) blocks.*/\1 bytes in \2 blocks/p' "$log" | tail -n 1)
  other=$(grep -cE '(indirectly|possibly) lost: [1-9]' "$log")
  label=${cmd%%/*}
  [ -z "$label" ] && label="(no argument)"
  verdict=ok
  if [ "$status" -eq 99 ] || [ "${errors:-1}" != 0 ] || [ "$other" != 0 ]; then
    verdict="FAILED (memcheck errors)"
  elif [ "$label" = get_shaper_conf ]; then
    if ! grep -q 'definitely lost: .* in 1 blocks' "$log" ||
       ! grep -q 'OV_AgentShaperConfToJsonStr' "$log" ||
       ! grep -q 'MODULE\[AGENT\] unregister with memory leak(MemCounter 1,' "$work/out-$n.txt"; then
      verdict="FAILED (not the one expected leak)"
    else
      verdict="ok (the expected leak: the JSON text, reported by the AGENT module)"
    fi
  elif [ -n "$lost" ] && [ "${lost%% *}" != 0 ]; then
    verdict="FAILED (leak)"
  fi
  [ "${verdict%% *}" = ok ] || failed=$((failed + 1))
  # What the run printed, without the time-stamped log lines.
  outcome=$(sed -E 's/\[[0-9]{4}\/[0-9]{2}\/[0-9]{2}_[0-9:.]{12}\][^\n]*$//' "$work/out-$n.txt" |
            grep -v '^$' | grep -E '^Operation|^invalid|^pdtool Version' | head -n 1)
  printf '%-16s exit %3s, %s errors, definitely lost: %-20s %s\n    %s\n' \
    "$label" "$status" "${errors:-?}" "${lost:-none}" "$verdict" "${outcome:0:70}"
  if [ "${verdict%% *}" != ok ]; then
    sed -n '/HEAP SUMMARY/,$p' "$log" | head -n 40
  fi
done

echo "valgrind-check: $((n - failed)) of $n runs as expected"
[ "$failed" -eq 0 ]
