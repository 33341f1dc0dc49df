// End-to-end support: private agents, pdtool runs, journal reading.
#include "tests/e2e/e2e_support.h"

#include "agentsim/sim_os.h"

#include <json-c/json.h>

#include <atomic>
#include <cstdio>
#include <regex>
#include <sstream>

namespace e2e {

namespace {

constexpr uint32_t kRunTimeoutMs = 30000;

} // namespace

int ExitOf(int32_t code) {
#ifdef _WIN32
    return code;
#else
    return code & 0xFF;
#endif
}

std::string WithoutLogLines(const std::string &out) {
    // Only the stamp is matched: a whole long line would overflow the
    // regex engine's stack.
    static const std::regex kStamp(R"(\[\d{4}/\d\d/\d\d_\d\d:\d\d:\d\d\.\d{3}\])");
    std::string kept;
    size_t from = 0;
    for (std::sregex_iterator it(out.begin(), out.end(), kStamp), end; it != end; ++it) {
        const size_t at = static_cast<size_t>(it->position());
        if (at >= from) { // not inside a line already taken out
            kept += out.substr(from, at - from);
            size_t nl = out.find('\n', at);
            from = nl == std::string::npos ? out.size() : nl + 1;
        }
    }
    return kept + out.substr(from);
}

std::string AgentTest::Name() {
    // Short enough for a socket path (108 bytes) and unique per test and
    // test process, so tests run side by side. The capitals are letters a
    // plain OV_PIPE_NAME may hold.
    static std::atomic<unsigned> tests{0};
    if (name_.empty()) {
        name_ = "e2eAZ" + std::to_string(SimProcessId()) + "-" + std::to_string(tests++);
    }
    return name_;
}

void AgentTest::StartAgent(const std::vector<std::string> &options) {
    pipeName_ = Name();
    dir_ = pipeDirOverride_.empty() ? testing::TempDir() + pipeName_ : pipeDirOverride_;
    journal_ = dir_ + ".journal";
    std::string ready = dir_ + ".ready";
    std::remove(journal_.c_str());
    std::remove(ready.c_str());
    std::vector<std::string> argv = agentLauncher_;
    argv.insert(argv.end(),
                {ovtest::NativePath(OV_AGENTSIM_PATH), "--pipe-dir", dir_, "--pipe-name", pipeName_,
                 "--journal", journal_, "--ready-file", ready});
    argv.insert(argv.end(), options.begin(), options.end());
    agent_ = std::make_unique<ovtest::Process>();
    ASSERT_EQ(agent_->Start(argv), 0);
    ASSERT_TRUE(ovtest::WaitForFile(ready, 20000)) << agent_->Stderr();
}

void AgentTest::StopAgent() {
    // Every request is journaled before its reply goes out, so nothing is
    // lost by ending the agent at once (its clean shutdown has its own tests).
    if (agent_ != nullptr) {
        agent_->Kill();
    }
}

void AgentTest::TearDown() {
    StopAgent();
}

ovtest::EnvOverrides AgentTest::PdtoolEnv() const {
    return {{"OV_PIPE_DIR", dir_.empty() ? testing::TempDir() + "no_agent" : dir_},
            {"OV_PIPE_NAME", pipeName_.empty() ? "no_agent_here" : pipeName_}};
}

PdtoolRun AgentTest::Pdtool(const std::vector<std::string> &args) {
    std::vector<std::string> argv = pdtoolLauncher_;
    argv.push_back(ovtest::NativePath(OV_PDTOOL_PATH));
    argv.insert(argv.end(), args.begin(), args.end());
    ovtest::ProcessResult r = ovtest::RunProcess(argv, kRunTimeoutMs, PdtoolEnv());
    // Under Wine a process start fails now and then under load (about one in
    // a few thousand), before pdtool exists: that start is made again and
    // counted. A pdtool that started and failed is never run again.
    for (int again = 0; again < 3 && r.startResult != 0; ++again) {
        ++startsRetried_;
        r = ovtest::RunProcess(argv, kRunTimeoutMs, PdtoolEnv());
    }
    PdtoolRun run{r.exitStatus, r.out, WithoutLogLines(r.out), r.startResult == 0 && !r.timedOut,
                  std::string(r.timedOut ? "timed out; " : "") + "start " +
                      std::to_string(r.startResult) + "; stderr: " + r.err};
    EXPECT_TRUE(run.finished) << run.why;
    return run;
}

std::vector<Request> AgentTest::Journal() {
    std::vector<Request> out;
    std::istringstream lines(ovtest::ReadWholeFile(journal_));
    std::string line;
    while (std::getline(lines, line)) {
        if (line.empty()) {
            continue;
        }
        json_object *obj = json_tokener_parse(line.c_str());
        if (obj == nullptr) {
            ADD_FAILURE() << "journal line is not JSON: " << line;
            continue;
        }
        Request r;
        json_object *v = nullptr;
        auto field = [&](const char *key) {
            return json_object_object_get_ex(obj, key, &v) && v != nullptr;
        };
        for (auto [key, to] :
             {std::pair{"module", &r.module}, {"function", &r.function}, {"status", &r.status}}) {
            if (field(key)) {
                *to = json_object_get_int(v);
            }
        }
        for (auto [key, to] :
             {std::pair{"command", &r.command}, {"payload", &r.payloadHex}, {"fault", &r.fault}}) {
            if (field(key)) {
                *to = json_object_get_string(v);
            }
        }
        if (json_object_object_get_ex(obj, "record", &v)) {
            r.record = json_object_to_json_string_ext(v, JSON_C_TO_STRING_PLAIN |
                                                             JSON_C_TO_STRING_NOSLASHESCAPE);
        }
        json_object_put(obj);
        out.push_back(r);
    }
    return out;
}

Request AgentTest::Only() {
    std::vector<Request> all = Journal();
    EXPECT_EQ(all.size(), 1u);
    return all.empty() ? Request{} : all.back();
}

} // namespace e2e
