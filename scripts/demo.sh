#!/usr/bin/env bash
# A short tour of pdtool against agentsim on a private socket directory:
# builds the Linux programs if needed, starts the simulator, runs real
# commands (sets, a delete, the three gets and one deliberate error), shows
# what the agent received from its journal, and stops it.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root"

if [ ! -x build/linux/cli/pdtool ] || [ ! -x build/linux/agentsim/agentsim ]; then
  "$root/scripts/setup-deps.sh" --linux-only
  cmake --preset linux >/dev/null
  cmake --build --preset linux --target pdtool agentsim >/dev/null
fi
pdtool="$root/build/linux/cli/pdtool"
agentsim="$root/build/linux/agentsim/agentsim"

work=$(mktemp -d)
export OV_PIPE_DIR="$work/run"
journal="$work/journal.jsonl"
"$agentsim" --journal "$journal" --ready-file "$work/ready" \
  --sa-role 1 --sa-master-ip 10.0.0.1 --sa-master-port 8002 --sa-local-port 8001 \
  --sa-master-cpe-id 82 --sa-cal-queue-len 4 --sa-local-lan-id 1 &
agent=$!
trap 'kill $agent 2>/dev/null || true; wait $agent 2>/dev/null || true; rm -rf "$work"' EXIT
for _ in $(seq 1 100); do [ -f "$work/ready" ] && break; sleep 0.1; done

run() {
  printf '\n$ pdtool %s\n' "$1"
  "$pdtool" "$1" || true
  printf '\n'
}

run 'set_ratelimit/{"RateLimitId": 1, "BucketRate": 125000, "CBS": 250000, "Type": 1, "PerIpBucketRate": 12500, "PerIpCBS": 25000, "UpdateType": true, "PersistentFlag": true}'
run 'set_policy/{"Table": 0, "Zone": 1, "L3Flag": true, "Id": 10, "RuleVer": 1, "VpnId": 1, "Match": {"SrcIpNum": 1, "ProtoNum": 1, "SrcIp": [{"IpType": 0, "Ip": "192.168.10.0", "Mask": 24}], "Proto": [6]}, "Actions": {"OutputType": 1, "OutputNum": 1, "InboundRateLimitId": 1, "OutboundRateLimitId": 1, "OutputArray": [{"Id": 1, "Priority": true, "Probe": false}]}}'
run 'set_cpe_ip/{"Type": 1, "SiteIpId": 1, "PersistentFlag": true, "CustomerId": 7, "SiteId": 81, "IpAddr": "198.51.100.2"}'
run 'set_link/{"NetId": 1, "LinkId": 1, "Role": true, "Type": 2, "PersistentFlag": true, "WanId": 1, "PeerSiteIpId": 1, "LocalSitePort": 49152, "PeerSitePort": 49152, "PeerSiteId": 82, "KeepaliveInterval": 5, "KeepaliveTimeout": 30}'
run 'set_tunnel/{"VpnId": 1, "Label": 100, "Vni": 1, "NetId": 1, "LocalIp": "198.51.100.2", "PeerIp": "203.0.113.10", "PersistentFlag": true, "Path": [1], "LinkNum": 1, "EncryptAlgo": 1, "KeyLength": 16, "CipherKey": "00112233445566778899aabbccddeeff", "TimeStamp": 1767225600000}'
run 'set_shaper_conf/{"shaperId": 1, "persistentFlag": true, "wanKbps": 100000, "wanInKbps": 100000, "inBurstMs": 100, "outBurstMs": 100, "bandDist": [2, 2, 8, 8, 8, 8, 8, 0], "bandLimit": {"sharePriority": 2, "num": 1, "bandLimit": [{"priority": 2, "inkbps": 1000000, "outkbps": 1000000}]}}'
run 'set_engine_srtt/value=30 wanid=1'
run 'get_shaper_conf/shaperId=1'
run 'get_shaper_tbl'
run 'get_sa_cluster'
# The deliberate error: a tunnel without "VpnId" is refused before anything is sent.
run 'set_tunnel/{"Label": 1, "Vni": 1, "NetId": 1, "TimeStamp": 1767225600000}'

printf '\n== What the agent received (agentsim journal, one JSON line per request) ==\n'
cat "$journal"
