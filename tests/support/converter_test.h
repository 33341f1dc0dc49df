// A test of code that logs through the converters' log module: the module and
// the agent's memory module are registered for each test (their start-up lines
// kept off the test's output) and unregistered after it.
#pragma once

#include "agentconf/json_conv.h"
#include "base/errors.h"
#include "base/mem.h"
#include "tests/support/capture.h"
#include "tests/support/record_bytes.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <memory>
#include <span>
#include <sstream>
#include <string>

namespace ovtest {

/// A JSON list of n items, item(i) each.
template <typename Item>
std::string List(size_t n, Item item) {
    std::string out = "[";
    for (size_t i = 0; i < n; ++i) {
        out += (i == 0 ? "" : ",") + item(i);
    }
    return out + "]";
}

/// A JSON list of n copies of item.
inline std::string Repeat(const std::string &item, size_t n) {
    return List(n, [&item](size_t) { return item; });
}

/// A shaper block's "bandLimit" list of n items, their rates from base.
inline std::string ShaperItems(size_t n, uint32_t base) {
    return List(n, [base](size_t i) {
        return R"({"priority": )" + std::to_string(200 + i) + R"(, "inkbps": )" +
               std::to_string(base + i) + R"(, "outkbps": )" + std::to_string(base * 2 + i) + "}";
    });
}

/// Checks that `log` holds one Debug notice from `func` per key (the keys
/// blank-separated), "<what> not set <key><end>", in the keys' order and no
/// other; gives the JSON members (", \"key\": 1") that silence them all.
inline std::string NoticesInOrder(const std::string &log, const char *func, const std::string &what,
                                  const std::string &keys, const char *end = "!") {
    size_t last = 0;
    size_t count = 0;
    std::string every;
    std::istringstream in(keys);
    for (std::string key; in >> key; ++count) {
        every += ", \"" + key + "\": 1";
        size_t at = log.find("] " + what + " not set " + key + end + "\n", last);
        EXPECT_NE(at, std::string::npos) << key << "\n" << log;
        last = at == std::string::npos ? last : at;
    }
    EXPECT_EQ(CountOf(log, " not set "), count) << log;
    EXPECT_EQ(CountOf(log, std::string("<Debug:AGENTCONF>[") + func + ":"), count) << log;
    return every;
}

class ConverterTest : public testing::Test {
  protected:
    void SetUp() override {
        StdoutCapture quiet;
        OV_AgentConfLogRegister();
        AgentMemModuleRegister(); // for printed texts and access-name entries
    }
    void TearDown() override {
        StdoutCapture quiet;
        AgentMemModuleUnregister();
        OV_AgentConfLogUnregister();
    }
};

/// A test of one JSON -> record converter: each conversion fills a fresh
/// zeroed record and keeps what it logged.
template <typename Conf, int32_t (*Convert_)(Conf *, const char *)>
class RecordConverterTest : public ConverterTest {
  public:
    using Expected = RecordBytes<sizeof(Conf)>;

  protected:
    int32_t Convert(const std::string &text) {
        std::memset(conf.get(), 0, sizeof(Conf));
        StdoutCapture cap;
        int32_t rc = Convert_(conf.get(), text.c_str());
        log = cap.Take();
        return rc;
    }

    testing::AssertionResult Same(const Expected &want) const { return SameRecord(*conf, want); }

    /// A JSON text and the whole record it converts to.
    struct Form {
        std::string json;
        Expected want;
    };
    void ExpectForms(std::span<const Form> forms) {
        for (const Form &f : forms) {
            SCOPED_TRACE(f.json);
            ASSERT_EQ(Convert(f.json), 0) << log;
            EXPECT_TRUE(Same(f.want));
        }
    }

    /// A JSON text, the code it converts with and the message it logs (none
    /// when null) at `level` from `func` (the fixture's default when null).
    struct Message {
        std::string json;
        int32_t rc;
        const char *message;
        const char *func = nullptr;
        const char *level = "Error";
    };
    /// Each text gives its code and message; a failure also has `entry` log
    /// the failure line, once. `more` checks what else each case leaves.
    void ExpectMessages(const char *func, const char *entry, std::span<const Message> cases,
                        const std::function<void(const Message &)> &more = {}) {
        for (const Message &c : cases) {
            SCOPED_TRACE(c.json.substr(0, 200));
            EXPECT_EQ(Convert(c.json), c.rc);
            if (c.message != nullptr) {
                EXPECT_TRUE(Logged(c.level, c.func != nullptr ? c.func : func, c.message)) << log;
            }
            EXPECT_EQ(CountOf(log, "Json to data struct failed("), c.rc == 0 ? 0u : 1u) << log;
            if (c.rc != 0) {
                const std::string failed = "Json to data struct failed(" + std::to_string(-c.rc) +
                                           ":" + OV_StrError(-c.rc) + ")";
                EXPECT_TRUE(Logged("Error", entry, failed)) << log;
            }
            if (more) {
                more(c);
            }
        }
    }

    /// Whether a logged line is a `level` line of the converters' module from
    /// `func` that ends with "] " and text.
    bool Logged(const char *level, const char *func, const std::string &text) const {
        const std::string head = std::string("<") + level + ":AGENTCONF>[" + func + ":";
        const std::string tail = "] " + text;
        for (const std::string &line : Lines(log)) {
            if (line.find(head) != std::string::npos && line.ends_with(tail)) {
                return true;
            }
        }
        return false;
    }

    std::unique_ptr<Conf> conf = std::make_unique<Conf>(); // a rule is 17 KB
    std::string log;
};

} // namespace ovtest
