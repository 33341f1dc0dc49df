#!/usr/bin/env python3
"""Writes the seed inputs of the fuzz targets into fuzz/corpus/<target>/.

JSON seeds come from pdtool's usage samples and from the JSON texts of the
unit and end-to-end tests; key=value, reply and printer seeds are built here
from the forms the commands and the channel use. Each seed file is named by
the SHA-1 of its content (as libFuzzer names corpus files), so running the
script again adds nothing twice. Run it from anywhere; it needs only Python 3.
"""

import hashlib
import json
import pathlib
import re
import struct

ROOT = pathlib.Path(__file__).resolve().parent.parent
CORPUS = ROOT / "fuzz" / "corpus"

# Test files whose JSON belongs to one record kind.
SOURCES = {
    "rule": ["agentconf/rule_test.cpp", "agentconf/rule_decode_test.cpp"],
    "ratelimit": ["agentconf/ratelimit_test.cpp", "agentconf/ratelimit_decode_test.cpp"],
    "conn": ["agentconf/conn_test.cpp", "agentconf/conn_decode_test.cpp"],
    "globalarg": ["agentconf/globalarg_test.cpp", "agentconf/globalarg_decode_test.cpp"],
    "shaper": ["agentconf/shaper_test.cpp", "agentconf/shaper_decode_test.cpp"],
    "acsname": ["agentconf/acsname_test.cpp", "agentconf/acsname_decode_test.cpp"],
    "link*": ["agentconf/link_test.cpp", "agentconf/link_decode_test.cpp"],
    "any": ["tests/e2e/pdtool_e2e_test.cpp", "agentsim/sim_server_test.cpp",
            "agentsim/agentsim_process_test.cpp", "agentconf/json_conv_test.cpp"],
}

# Keys only one kind takes: they sort the shared files' texts.
MARKERS = {
    "rule": {"Actions", "Match", "Zone", "Table"},
    "ratelimit": {"RateLimitId", "BucketRate", "CBS"},
    "conn": {"Label", "Vni", "PeerIp", "Path", "InputKey", "SlaCfg"},
    "linkip": {"SiteIpId", "SiteId", "IpAddr", "Ip6Addr"},
    "link": {"LinkId", "PeerSiteIpId", "PeerSiteId", "Thresh"},
    "globalarg": {"Lenth", "Value64", "Range", "Ipv6", "Value"},
    "shaper": {"shaperId", "wanKbps", "bandDist", "guaranteeBandLimit"},
    "acsname": {"ascname", "iplist", "domainlist", "ipset", "version"},
}

RAW = re.compile(r'R"\((.*?)\)"', re.S)
# Adjacent raw literals, which C++ joins into one text.
RAW_RUN = re.compile(r'R"\(.*?\)"(?:\s*R"\(.*?\)")*', re.S)

# Rule and connection tests build whole texts from parts: a base with the
# required keys and what a test adds to it.
RULE_BASE = '{"Zone": 1, "VpnId": 2, "Id": 3, "RuleVer": 4'
CONN_BASE = '{"Label": 1, "Vni": 0, "NetId": 0, "VpnId": 9, "TimeStamp": 2'
MATCH_KEYS = {"SrcIpNum", "DstIpNum", "SrcPortNum", "DstPortNum", "ProtoNum", "SrcIp", "DstIp",
              "InPortNum", "EthTypeNum", "DscpNum", "TransIdNum", "AcsNameFlag", "SrcIpSetFlag"}
ACTION_KEYS = {"OutputNum", "OutputArray", "NatInfo", "SnatFlag", "DnatFlag", "SetVpnFlag",
               "AcceFlag", "SetDscpFlag", "SetPolicyFlag", "OutputType"}


def write(target, data):
    folder = CORPUS / target
    folder.mkdir(parents=True, exist_ok=True)
    (folder / hashlib.sha1(data).hexdigest()).write_bytes(data)


def raw_strings(path):
    for run in RAW_RUN.findall((ROOT / path).read_text()):
        yield "".join(RAW.findall(run))


def rule_parts(text):
    """A rule built around a part of one, or nothing."""
    if text.startswith(", "):
        return RULE_BASE + text + ', "Actions": {}}'
    try:
        obj = json.loads(text)
    except ValueError:
        return None
    if not isinstance(obj, dict):
        return None
    if obj.keys() & MATCH_KEYS:
        return RULE_BASE + ', "Match": ' + text + ', "Actions": {}}'
    if obj.keys() & ACTION_KEYS:
        return RULE_BASE + ', "Actions": ' + text + "}"
    return None


def json_kind(text, allowed):
    try:
        obj = json.loads(text)
    except ValueError:
        return None
    if not isinstance(obj, dict):
        return None
    best = max(allowed, key=lambda k: len(MARKERS[k] & obj.keys()))
    return best if MARKERS[best] & obj.keys() else None


def json_seeds():
    samples = dict(re.findall(r'kUsage(\w+)Sample =\s*R"\((.*?)\)"',
                              (ROOT / "cli/usage.cpp").read_text(), re.S))
    names = {"Rule": "rule", "LinkIp": "linkip", "Link": "link", "Tunnel": "conn",
             "ConnCmd": "globalarg", "Ratelimit": "ratelimit", "Shaper": "shaper"}
    for name, text in samples.items():
        write(names[name], text.encode())
    # The tunnel sample lacks VpnId; with it, it converts.
    write("conn", samples["Tunnel"].replace("{", '{"VpnId": 1, ', 1).encode())

    for kind, files in SOURCES.items():
        allowed = list(MARKERS) if kind == "any" else (
            ["linkip", "link"] if kind == "link*" else [kind])
        for path in files:
            for text in raw_strings(path):
                target = json_kind(text, allowed)
                if target is not None:
                    write(target, text.encode())
                elif kind == "rule" and rule_parts(text) is not None:
                    write("rule", rule_parts(text).encode())
                elif kind == "conn" and text.startswith(", "):
                    write("conn", (CONN_BASE + text + "}").encode())
                elif kind == "conn" and text.startswith('"'):
                    write("conn", ("{" + text + ', "VpnId": 9, "TimeStamp": 2}').encode())


def kv_seeds():
    # The rows fuzz_kvargs picks from, in table order (its first byte).
    handlers = {"CmdRuleDel", "CmdLinkIpDel", "CmdLinkDel", "CmdConnDel", "CmdShaperDel",
                "CmdRatelimitDel", "CmdAcsNameDel", "CmdEngineParamSet", "CmdShaperGet"}
    table = re.findall(r'\{"(\w+)", (\w+), 0x[0-9a-f]+\}', (ROOT / "cli/pdtool.cpp").read_text())
    rows = [(name, handler) for name, handler in table if handler in handlers]
    args = {
        "CmdRuleDel": ["zone=1 id=1", "zone=3 clientid=2", "zone=1"],
        "CmdLinkIpDel": ["clientid=1 vpnid=2 wanid=259", "clientid=1 wanid=1"],
        "CmdLinkDel": ["linkid=16777217 netid=257", "netid=1 linkid=2"],
        "CmdConnDel": ["netid=300 label=2097153 vni=9", "netid=1 label=1"],
        "CmdShaperDel": ["shaperId=1", "shaperId=256", "shaperId=-1"],
        "CmdShaperGet": ["shaperId=1", "shaperId= +7x"],
        "CmdRatelimitDel": ["id=4000000000", "id=-1", "rid"],
        "CmdAcsNameDel": ["name=corp", "name=" + "n" * 64],
        "CmdEngineParamSet": ["value=30 wanid=2", "wanid=1 value=1"],
    }
    for index, (_, handler) in enumerate(rows):
        for arg in args[handler]:
            write("kvargs", bytes([index]) + arg.encode())
    write("kvargs", bytes([0]))  # no "/": a null argument


def shaper_record():
    # The usage sample's record, from its field offsets.
    rec = bytearray(224)
    struct.pack_into("<BBB", rec, 0, 1, 1, 1)
    struct.pack_into("<IIHH", rec, 4, 100000, 100000, 100, 100)
    rec[16:24] = bytes([2, 2, 8, 8, 8, 8, 8, 0])
    struct.pack_into("<BBB", rec, 24, 1, 2, 1)
    struct.pack_into("<BxxxII", rec, 28, 2, 1000000, 1000000)
    return bytes(rec)


def reply(status, data=b"", announced=None):
    return struct.pack("<iIQ", status, 0, len(data) if announced is None else announced) + data


def channel_seeds():
    rec = shaper_record()
    full = bytearray(rec)
    full[2] = 8  # eight items in the first block
    for i in range(8):
        struct.pack_into("<BxxxII", full, 28 + 12 * i, i, 1000 * i, 2000 * i)

    sa = bytearray(540)
    struct.pack_into("<iBBHH", sa, 0, 1, 4, 2, 8001, 8002)
    struct.pack_into("<II", sa, 12, 0x0A000001, 77)
    table = bytes([2, 0, 0, 0]) + rec + bytes(full)
    streams = [
        (0, reply(0)), (0, reply(-2)), (0, reply(0)[:9]), (0, reply(0, b"", 1 << 63)),
        (1, reply(0, rec)), (1, reply(0)), (1, reply(0, rec + b"x")), (1, reply(0, rec)[:100]),
        (2, reply(0, bytes(sa))), (2, reply(-22)), (2, reply(0, bytes(sa))[:300]),
        (3, reply(0, table)), (3, reply(0, bytes([0, 0, 0, 0]))), (3, reply(0, table[:-1])),
        (4, reply(0, b"\x01\x00") + reply(0, b"\x01\xee") + reply(0, b"\x00")),
        (4, reply(0, b"\x01") + reply(-5)),
        (5, reply(0, b"abcdefgh")), (11, reply(0, b"ab")), (5, reply(0, b"", 1 << 40)),
    ]
    for op, stream in streams:
        write("reply", bytes([op]) + stream)
    write("reply", bytes([3]) + bytes(range(64)))  # garbage


def line_seeds():
    # Configuration files; the first byte is the read size (0: all at once),
    # the second the line limit less one.
    files = [
        b"# site\n\nset_ratelimit/{\"RateLimitId\": 1}\ndel_link/linkid=1 netid=2\n",
        b"set_shaper_conf/{\"shaperId\": 1, \\\r\n  \"wanKbps\": 10}\r\nget_shaper_tbl",
        b"\xef\xbb\xbf  # c \\\n\t\\\n \nx\\",
        b"a\x00b\n" + b"z" * 300 + b"\\\nq\n#" + b"c" * 300,
    ]
    for data in files:
        for step, limit in ((0, 255), (1, 40), (7, 9)):
            write("line_reader", bytes([step, limit]) + data)


def main():
    json_seeds()
    kv_seeds()
    channel_seeds()
    line_seeds()
    for folder in sorted(CORPUS.iterdir()):
        print(f"{folder.name}: {sum(1 for _ in folder.iterdir())} seeds")


if __name__ == "__main__":
    main()
