// A test of code that logs through the converters' log module: the module is
// registered for each test (its start-up lines kept off the test's output)
// and unregistered after it.
#pragma once

#include "agentconf/json_conv.h"
#include "tests/support/capture.h"

#include <gtest/gtest.h>

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

} // namespace ovtest
