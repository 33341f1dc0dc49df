// Tests of agentsim's command line and of its fault rules.
#include "agentsim/sim_options.h"

#include "agentconf/records.h"
#include "base/errors.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

int32_t Parse(std::vector<const char *> args, SimOptions *opt, std::string *error) {
    args.insert(args.begin(), "agentsim");
    return SimParseOptions(static_cast<int>(args.size()), args.data(), opt, error);
}

// The other defaults show end to end (the SA state an agent started without
// options answers, the journal it does not write).
TEST(SimOptions, DefaultsServeTheAgentsPipe) {
    SimOptions opt;
    std::string error;
    ASSERT_EQ(Parse({}, &opt, &error), 0);
    EXPECT_EQ(opt.instances, 3u);
    EXPECT_TRUE(opt.faults.Empty());
    EXPECT_EQ(SimPipeName(opt.pipeName), L"\\\\.\\pipe\\imc_config_pipe");
}

TEST(SimOptions, RefusesBadOptionsWithAMessage) {
    // An option and, after '|', its value.
    // clang-format off
    const std::string bad[] = {
        "--nope", "pipe", "-h", "--help=1", "--journal", "--instances|0", "--instances|65",
        "--instances|3x", "--sa-local-port|+1", "--pipe-name|a/b", "--pipe-name|a\\b",
        "--pipe-name|", "--pipe-name|a b", "--sa-role|3", "--sa-local-port|65536",
        "--sa-cal-queue-len|256", "--sa-master-ip|10.0.0", "--sa-master-ip|10.0.0.256",
        "--sa-master-ip|10.0.0.1.2", "--sa-master-ip|10..0.1", "--sa-master-cpe-id|4294967296",
        "--fault-status|10:1", "--fault-status|10:1=1", "--fault-status|10:1=-5x",
        "--fault-status|10:1=-2147483649", "--fault-status|25:1=-5", "--fault-status|10:x=-5",
        "--fault-status|10:65536=-5", "--fault-delay|10:1=-1", "--fault-delay|10:1= 5",
        "--fault-delay|10:1=3600001", "--fault-close|10:1=5", "--fault-garbage|10"};
    // clang-format on
    for (const std::string &text : bad) {
        SCOPED_TRACE(text);
        size_t bar = text.find('|');
        const std::string option = text.substr(0, bar);
        const std::string value = bar == std::string::npos ? "" : text.substr(bar + 1);
        std::vector<const char *> args = {option.c_str()};
        if (bar != std::string::npos) {
            args.push_back(value.c_str());
        }
        SimOptions opt;
        std::string error;
        EXPECT_EQ(Parse(args, &opt, &error), -22);
        EXPECT_FALSE(error.empty());
    }
}

TEST(SimOptions, EveryOptionTheHelpNamesIsOneTheParserKnows) {
    const std::string usage = SimUsage();
    size_t named = 0;
    for (size_t at = usage.find("  --"); at != std::string::npos; at = usage.find("  --", at + 1)) {
        std::string option = usage.substr(at + 2, usage.find_first_of(" =\n", at + 2) - at - 2);
        SimOptions opt;
        std::string error;
        std::string arg = option + "=x";
        Parse({arg.c_str()}, &opt, &error);
        EXPECT_EQ(error.find("unknown option"), std::string::npos) << option;
        ++named;
        // Every number the help gives for an N option is a value it takes.
        size_t eol = usage.find('\n', at);
        if (usage.compare(at + 2 + option.size(), 3, " N ") != 0) {
            continue;
        }
        for (size_t d = usage.find_first_of("0123456789", at); d < eol;
             d = usage.find_first_of("0123456789", d)) {
            size_t len = usage.find_first_not_of("0123456789", d) - d;
            std::string value = option + "=" + usage.substr(d, len);
            EXPECT_EQ(Parse({value.c_str()}, &opt, &error), 0) << value << ": " << error;
            d += len;
        }
    }
    EXPECT_EQ(named, 21u);
}

// The help's list of served functions says what the protocol description
// says, and the statuses it names are the agent's.
TEST(SimOptions, HelpListsTheFunctionsOfTheProtocol) {
    const std::string usage = SimUsage();
    const CommandSpec &sa = *OV_CommandForWord("get_sa_cluster");
    for (const std::string &said :
         {"(module " + std::to_string(sa.Module()) + ", function " + std::to_string(sa.function),
          "answers " + std::to_string(-OV_ENOENT) + ";", "size " + std::to_string(-OV_EINVAL) + ";",
          std::to_string(-OV_ENOSYS) + " with no data"}) {
        EXPECT_NE(usage.find(said), std::string::npos) << said;
    }
    const char *opNames[] = {"set", "delete", "get one", "get the table", "get the SA"};
    for (const CommandSpec &c : kCommands) {
        if (c.kind == RecordKind::Engine) {
            continue; // one function, told apart by the record
        }
        SCOPED_TRACE(c.word);
        // Module 3 names its words, rules their table and operation, the
        // others what they do.
        std::string entry = std::to_string(c.function) + " " +
                            (c.Module() == 3 ? c.word : opNames[static_cast<int>(c.op)]);
        if (c.kind == RecordKind::Rule) {
            entry = std::to_string(c.function & 0xFF) + " " + opNames[static_cast<int>(c.op)];
        }
        size_t line = usage.find("\n  " + std::to_string(c.Module()) + " ");
        ASSERT_NE(line, std::string::npos);
        size_t end = usage.find("\n  ", line + 1);
        while (end != std::string::npos && usage.compare(end, 5, "\n    ") == 0) {
            end = usage.find("\n  ", end + 1); // continuation lines
        }
        const std::string text = usage.substr(line, end - line);
        EXPECT_NE(text.find(entry), std::string::npos) << entry;
        if (c.SendsRecord()) {
            std::string size = "(" + std::to_string(OV_RequestSize(c));
            EXPECT_NE(text.find(size), std::string::npos) << size;
        }
        if (c.kind == RecordKind::Rule) {
            std::string table = std::to_string(c.function >> 8) + " " + (c.word + 4);
            EXPECT_NE(text.find(table), std::string::npos) << table;
        }
    }
}

TEST(SimFaults, ExactFunctionBeatsWildcardAndTheLastRuleWinsAmongEquals) {
    SimFaults faults;
    std::string error;
    ASSERT_EQ(faults.Add(SimFaultKind::Close, "15:1", &error), 0);
    ASSERT_EQ(faults.Add(SimFaultKind::Status, "15:*=-5", &error), 0);
    ASSERT_EQ(faults.Add(SimFaultKind::Status, "15:*=-7", &error), 0);
    ASSERT_EQ(faults.Add(SimFaultKind::Delay, "15:*=300", &error), 0);
    ASSERT_EQ(faults.Add(SimFaultKind::Delay, "15:4=20", &error), 0);
    ASSERT_EQ(faults.Add(SimFaultKind::Garbage, "3:26", &error), 0);
    ASSERT_EQ(faults.Add(SimFaultKind::Truncate, "3:26", &error), 0);
    ASSERT_EQ(faults.Add(SimFaultKind::Close, "8:0", &error), 0); // function 0 is named too
    ASSERT_EQ(faults.Add(SimFaultKind::Garbage, "8:*", &error), 0);

    SimFaultPlan p = faults.Plan(15, 1);
    EXPECT_EQ(p.action, SimFaultKind::Close); // named, although the wildcards came later
    EXPECT_EQ(p.delayMs, 300u);
    p = faults.Plan(15, 4);
    EXPECT_EQ(p.action, SimFaultKind::Status);
    EXPECT_EQ(p.status, -7);
    EXPECT_EQ(p.delayMs, 20u);
    p = faults.Plan(3, 26);
    EXPECT_EQ(p.action, SimFaultKind::Truncate);
    EXPECT_EQ(p.delayMs, 0u);
    p = faults.Plan(3, 25);
    EXPECT_FALSE(p.action.has_value());
    EXPECT_EQ(faults.Plan(8, 0).action, SimFaultKind::Close);
    EXPECT_EQ(faults.Plan(8, 1).action, SimFaultKind::Garbage);
    p = faults.Plan(10, 1);
    EXPECT_FALSE(p.action.has_value());
    EXPECT_EQ(p.delayMs, 0u);
}

TEST(SimFaults, AcceptsTheEdgesOfEachValue) {
    SimFaults faults;
    std::string error;
    EXPECT_EQ(faults.Add(SimFaultKind::Status, "0:65535=-2147483648", &error), 0) << error;
    EXPECT_EQ(faults.Add(SimFaultKind::Status, "24:0=0", &error), 0) << error;
    EXPECT_EQ(faults.Add(SimFaultKind::Delay, "4:*=3600000", &error), 0) << error;
    EXPECT_EQ(faults.Plan(0, 65535).status, INT32_MIN);
    EXPECT_EQ(faults.Plan(4, 0x0102).delayMs, 3600000u);
}

} // namespace
