// Tests over the protocol description: every command resolves back from its
// request, and every record kind converts, decodes and converts again to the
// same bytes.
#include "agentconf/engine.h"
#include "agentconf/json_conv.h"
#include "agentconf/records.h"
#include "base/mem.h"
#include "tests/support/capture.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

TEST(Protocol, EveryRequestNamesTheCommandThatSendsIt) {
    for (const CommandSpec &cmd : kCommands) {
        SCOPED_TRACE(cmd.word);
        std::vector<uint8_t> payload(OV_RequestSize(cmd), 0);
        if (cmd.kind == RecordKind::Engine) {
            payload[offsetof(AgentEngineParamConf, paramCode)] = static_cast<uint8_t>(cmd.id);
        }
        const CommandSpec *found = OV_CommandOfRequest(cmd.Module(), cmd.function, payload);
        ASSERT_NE(found, nullptr);
        // Every word but the engine rows has a (module, function) of its own.
        EXPECT_STREQ(found->word, cmd.word);
        EXPECT_EQ(OV_RecordSpecOf(cmd.kind).kind, cmd.kind);
    }
    std::vector<uint8_t> engine(sizeof(AgentEngineParamConf), 0);
    engine[offsetof(AgentEngineParamConf, paramCode)] = 4; // no such parameter
    EXPECT_EQ(OV_CommandOfRequest(8, 0, engine), nullptr);
    EXPECT_EQ(OV_CommandOfRequest(8, 0, {}), nullptr);
    EXPECT_EQ(OV_CommandOfRequest(3, 0x0007, {}), nullptr);
}

TEST(Protocol, PersistentFlagIsReadWhereEachKindKeepsIt) {
    struct Case {
        RecordKind kind;
        size_t offset;
        uint8_t byte;
    };
    // (offset, byte) sets the flag; every other byte of the record leaves it clear.
    const Case cases[] = {{RecordKind::LinkIp, 2, 0x01},   {RecordKind::Link, 8, 0x10},
                          {RecordKind::Conn, 110, 0x08},   {RecordKind::Ratelimit, 64, 0x80},
                          {RecordKind::AcsName, 68, 0x01}, {RecordKind::Shaper, 1, 0x01}};
    for (const Case &c : cases) {
        SCOPED_TRACE(OV_RecordSpecOf(c.kind).name);
        std::vector<uint8_t> rec(OV_RecordSpecOf(c.kind).size, 0xFF);
        rec[c.offset] = static_cast<uint8_t>(~c.byte);
        EXPECT_FALSE(OV_RecordIsPersistent(c.kind, rec));
        rec.assign(rec.size(), 0);
        rec[c.offset] = c.byte;
        EXPECT_TRUE(OV_RecordIsPersistent(c.kind, rec));
        EXPECT_FALSE(OV_RecordIsPersistent(c.kind, std::span(rec).first(c.offset)));
    }
    std::vector<uint8_t> rule(OV_RecordSpecOf(RecordKind::Rule).size, 0xFF);
    EXPECT_FALSE(OV_RecordIsPersistent(RecordKind::Rule, rule));
}

struct RoundTrip {
    RecordKind kind;
    const char *json;
};

class RecordRoundTrip : public testing::TestWithParam<RoundTrip> {
  protected:
    // The record bytes as sent, or empty when the converter refuses the text.
    static std::vector<uint8_t> Convert(const OV_RecordSpec &spec, const char *json) {
        std::vector<uint8_t> rec(spec.size, 0);
        int32_t rc = spec.convert(rec.data(), json);
        if (spec.release != nullptr) {
            spec.release(rec.data());
        }
        return rc == 0 ? rec : std::vector<uint8_t>{};
    }
};

TEST_P(RecordRoundTrip, DecodedRecordConvertsBackToTheSameBytes) {
    const OV_RecordSpec &spec = OV_RecordSpecOf(GetParam().kind);
    std::vector<uint8_t> first;
    std::vector<uint8_t> second;
    OV_JsonPtr decoded;
    std::string text;
    {
        ovtest::StdoutCapture quiet; // the converters log every step
        OV_AgentConfLogRegister();
        AgentMemModuleRegister();
        first = Convert(spec, GetParam().json);
        decoded.reset(first.empty() ? nullptr : spec.decode(first.data(), first.size()));
        text = decoded == nullptr
                   ? ""
                   : json_object_to_json_string_ext(decoded.get(), JSON_C_TO_STRING_PLAIN);
        second = Convert(spec, text.c_str());
        AgentMemModuleUnregister();
        OV_AgentConfLogUnregister();
    }
    ASSERT_EQ(first.size(), spec.size) << "refused: " << GetParam().json;
    ASSERT_NE(decoded, nullptr);
    EXPECT_EQ(second, first) << text;
    EXPECT_EQ(spec.decode(first.data(), first.size() - 1), nullptr);
}

// The usage samples of every kind with a converter, and the edge forms each
// decoder must carry back.
const RoundTrip kRoundTrips[] = {
    {RecordKind::Ratelimit,
     R"({"RateLimitId": 1, "BucketRate": 0, "CBS": 0, "TokenBonus": 0, "Type": 1,
         "PerIpBucketRate": 0, "PerIpCBS": 0, "UpdateType": 1, "PersistentFlag": true})"},
    {RecordKind::Ratelimit,
     R"({"RateLimitId": 1, "Type": 2, "PerIpBucketRate": 0, "PerIpCBS": 77})"},
    {RecordKind::LinkIp,
     R"({"Type": 2, "SiteIpId": 1, "PersistentFlag": true, "CustomerId": 0, "SiteId": 82,
         "IpAddr": "203.0.113.10"})"},
    {RecordKind::Link,
     R"({"NetId": 1, "LinkId": 1, "Role": true, "Simu": false, "Type": 2, "PersistentFlag": true,
         "Mode": 0, "Thresh": 3, "ProtoVersion": 1, "WanId": 1, "LocalVpnId": 0,
         "PeerSiteIpId": 1, "PeerVpnId": 0, "LocalSitePort": 49152, "PeerSitePort": 49152,
         "PeerSiteId": 82, "PeerCustomerId": 0, "KeepaliveInterval": 5, "KeepaliveTimeout": 30})"},
    {RecordKind::GlobalArg, R"({ "Type": 25, "Lenth": 8, "Value64": 104448000})"},
    {RecordKind::Shaper,
     R"({"shaperId": 1, "persistentFlag": true, "wanKbps": 100000, "wanInKbps": 100000,
         "inBurstMs": 100, "outBurstMs": 100, "bandDist": [2, 2, 8, 8, 8, 8, 8, 0],
         "bandLimit": {"sharePriority": 2, "num": 1, "bandLimit": [{"priority": 2,
         "inkbps": 1000000, "outkbps": 1000000}]}})"},
    {RecordKind::AcsName,
     R"({"id": 12, "ascname": "office", "version": 3, "persistentFlag": true,
         "ipset": ["lan"], "domainset": ["corp"],
         "Probe": {"Enable": 1, "Protocol": 6, "Port": 443, "Ip": "10.0.0.1"}})"},
};
INSTANTIATE_TEST_SUITE_P(EveryKind, RecordRoundTrip, testing::ValuesIn(kRoundTrips),
                         [](const testing::TestParamInfo<RoundTrip> &param) {
                             return std::string(OV_RecordSpecOf(param.param.kind).name) + "_" +
                                    std::to_string(param.index);
                         });

} // namespace
