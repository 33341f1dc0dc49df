// pdctl: pdtool's command words for whole configuration files. apply sends
// a file's commands over one connection, check converts them without an
// agent and says which will not do what they seem to, explain shows the
// record one command word makes.
#pragma once

namespace pdctl {

/// Exit statuses: everything worked; a command was refused or failed; bad
/// usage, an unreadable file or no agent.
constexpr int kExitOk = 0;
constexpr int kExitFailed = 1;
constexpr int kExitTrouble = 2;

struct Options {
    bool keepGoing = false;       ///< apply: go on after a failed command
    bool json = false;            ///< apply, check: one JSON object per line
    bool verbose = false;         ///< the log's lines on standard error
    bool strict = false;          ///< check: warnings fail the check
    bool hex = false;             ///< explain: the record's bytes
    bool layout = false;          ///< explain: the record field by field
    const char *target = nullptr; ///< the file ("-": standard input) or the command word
};

/// The commands; each returns the exit status. The process set-up (log
/// routing, memory and log modules) is PdctlMain's.
int Apply(const Options &options);
int Check(const Options &options);
int Explain(const Options &options);

/// The whole run of pdctl; returns the exit status.
int PdctlMain(int argc, char **argv);

} // namespace pdctl
