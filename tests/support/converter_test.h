// A test of code that logs through the converters' log module: the module is
// registered for each test (its start-up lines kept off the test's output)
// and unregistered after it.
#pragma once

#include "agentconf/json_conv.h"
#include "tests/support/capture.h"
#include "tests/support/record_bytes.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>

namespace ovtest {

class ConverterTest : public testing::Test {
  protected:
    void SetUp() override {
        StdoutCapture quiet;
        OV_AgentConfLogRegister();
    }
    void TearDown() override {
        StdoutCapture quiet;
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
