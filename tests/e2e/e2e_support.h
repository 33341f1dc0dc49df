// End-to-end support: a private agentsim per test (its own pipe name and
// socket directory, a journal), pdtool runs against it, what pdtool printed
// with the log lines taken out, and the payloads the agent received.
#pragma once

#include "tests/support/process.h"
#include "tests/support/record_bytes.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace e2e {

/// One request as the agent's journal recorded it.
struct Request {
    int module = -1;
    int function = -1;
    std::string command; ///< "" when the journal has none
    int status = 0;
    std::string payloadHex;
    std::string record; ///< the decoded record as JSON text ("null" for none)
    std::string fault;  ///< the fault agentsim applied ("" for none)
};

/// What one pdtool run gave.
struct PdtoolRun {
    int exitStatus = -1;
    std::string out;      ///< everything on standard output
    std::string printed;  ///< standard output without the time-stamped log lines
    bool finished = true; ///< started, and ended before the time-out
    std::string why;      ///< whether it timed out, its start result, standard error
};

/// The exit status a process reports for a program that returned code.
int ExitOf(int32_t code);

/// Expected payloads are built as the converter tests build theirs.
using Record = ovtest::RecordBytes<>;

/// Removes every "[yyyy/mm/dd_hh:mm:ss.mmm]...\n" log line, wherever it starts.
std::string WithoutLogLines(const std::string &out);

/// A test with its own agent. Options are extra agentsim options.
class AgentTest : public testing::Test {
  protected:
    void TearDown() override;

    /// Starts agentsim with the test's pipe name and directory.
    void StartAgent(const std::vector<std::string> &options = {});
    void StopAgent();
    /// Runs pdtool with these arguments.
    PdtoolRun Pdtool(const std::vector<std::string> &args = {});
    /// The requests the agent has journaled so far.
    std::vector<Request> Journal();
    /// The one request of the test (fails the test when there is not exactly one).
    Request Only();

    std::string Name();
    /// The environment that points pdtool at this test's agent.
    ovtest::EnvOverrides PdtoolEnv() const;
    /// The agent's socket directory when set before StartAgent; else a
    /// private one. Ignored on Windows.
    std::string pipeDirOverride_;
    /// Put before the agent's and pdtool's command lines (say, to run them as
    /// another user); empty: run directly.
    std::vector<std::string> agentLauncher_;
    std::vector<std::string> pdtoolLauncher_;
    std::string name_;
    std::string dir_;
    std::string pipeName_;
    std::string journal_;
    std::unique_ptr<ovtest::Process> agent_; ///< a new one per start
    /// pdtool starts the system refused and that were made again.
    std::atomic<int> startsRetried_{0};
};

} // namespace e2e
