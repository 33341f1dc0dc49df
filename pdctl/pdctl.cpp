// pdctl's run: the command line, the help text, and the set-up every
// command shares (where log lines go, the memory and log modules).
#include "pdctl/pdctl.h"

#include "agentconf/json_conv.h"
#include "base/log.h"
#include "base/mem.h"
#include "base/platform.h"
#include "ov_version.h"
#include "pdctl/line_reader.h"
#include "pdctl/runner.h"
#include "pdctl/terminal.h"

#include <cstdio>
#include <cstring>
#include <string>

namespace pdctl {

namespace {

constexpr const char *kHelp =
    R"(Usage: pdctl COMMAND [OPTION]... FILE|WORD
Runs pdtool's command words from a configuration file: one word per line,
exactly as pdtool takes it, without shell quoting.

Commands:
  apply [--keep-going] [--json] [-v] FILE
      send every command of FILE ("-": standard input) to the agent over one
      connection, in file order: one result per command, then
      "N applied, N failed, N not run". The first failure stops the run
      (later lines are not run) unless --keep-going is given; an agent that
      is gone (no new connection after a failed one) always does.
  check [--json] [--strict] FILE
      convert every command without an agent; report the refused ones and
      warn of lines that will not do what they seem to. Warnings alone pass
      unless --strict is given.
  explain [--hex] [--layout] WORD
      show the record WORD makes, without an agent: module, function, record
      kind and size, the record as JSON; --hex adds its bytes, --layout
      every field with its offset, size and value.

Options:
  --json      one JSON object per line, then a summary object
  -v          the log's lines on standard error (otherwise none are shown)
  --help      show this text and exit
  --version   show the version and exit

In a file, blank lines and lines starting with "#" are skipped, and a line
ending in "\" continues on the next. A line may be up to 4 MiB long.
OV_PIPE_NAME (and on Linux OV_PIPE_DIR) choose the agent's pipe, as for pdtool.

Exit status: 0 everything worked; 1 a command was refused or failed; 2 bad
usage, an unreadable file, or no agent.
)";

struct CommandDef {
    const char *name;
    int (*run)(const Options &);
    const char *options; ///< the options it takes, each between spaces
};

constexpr CommandDef kCommands[] = {
    {"apply", Apply, " --keep-going --json -v "},
    {"check", Check, " --json --strict -v "},
    {"explain", Explain, " --hex --layout -v "},
};

int Usage(const std::string &why) {
    std::fprintf(stderr, "pdctl: %s\nTry 'pdctl --help'.\n", why.c_str());
    return kExitTrouble;
}

bool Takes(const CommandDef &cmd, const char *option) {
    std::string padded = std::string(" ") + option + " ";
    return std::strstr(cmd.options, padded.c_str()) != nullptr;
}

void SetOption(Options *opt, const char *option) {
    struct Flag {
        const char *name;
        bool Options::*member;
    };
    static constexpr Flag kFlags[] = {{"--keep-going", &Options::keepGoing},
                                      {"--json", &Options::json},
                                      {"-v", &Options::verbose},
                                      {"--strict", &Options::strict},
                                      {"--hex", &Options::hex},
                                      {"--layout", &Options::layout}};
    for (const Flag &f : kFlags) {
        if (std::strcmp(option, f.name) == 0) {
            opt->*f.member = true;
        }
    }
}

void LogToStderr(const char *line, size_t len) {
    std::fwrite(line, 1, len, stderr);
}

void DropLog(const char * /*line*/, size_t /*len*/) {}

} // namespace

int PdctlMain(int argc, char **argv) {
    OV_SetStdoutBinary();
    SetStderrBinary();
    if (argc < 2) {
        return Usage("a command is needed");
    }
    if (std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0) {
        std::fputs(kHelp, stdout);
        return kExitOk;
    }
    if (std::strcmp(argv[1], "--version") == 0) {
        std::printf("pdctl %s\n", OV_VERSION_STRING);
        return kExitOk;
    }
    const CommandDef *cmd = nullptr;
    for (const CommandDef &c : kCommands) {
        if (std::strcmp(argv[1], c.name) == 0) {
            cmd = &c;
        }
    }
    if (cmd == nullptr) {
        return Usage(std::string("unknown command '") + argv[1] + "'");
    }
    Options opt;
    bool optionsEnd = false;
    for (int i = 2; i < argc; ++i) {
        const char *a = argv[i];
        if (!optionsEnd && std::strcmp(a, "--") == 0) {
            optionsEnd = true;
        } else if (!optionsEnd && a[0] == '-' && a[1] != '\0') {
            if (!Takes(*cmd, a)) {
                return Usage(std::string("unknown option '") + a + "' for " + cmd->name);
            }
            SetOption(&opt, a);
        } else if (opt.target == nullptr) {
            opt.target = a;
        } else {
            return Usage(std::string("one FILE or WORD only: '") + a + "' is one too many");
        }
    }
    if (opt.target == nullptr) {
        return Usage(std::string(cmd->name) +
                     (cmd->run == Explain ? " needs a WORD" : " needs a FILE"));
    }

    // The log (the client's and the converters' lines, time-stamped) is for
    // someone looking into a problem: standard error, and only when asked.
    OV_LogSetLineSink(opt.verbose ? LogToStderr : DropLog);
    SetConverterLogVerbose(opt.verbose);
    int status = kExitTrouble;
    if (AgentMemModuleRegister() < 0) {
        std::fprintf(stderr, "pdctl: the memory module could not be registered\n");
    } else {
        // The converters' errors and warnings go beneath the line they concern.
        bool confLogUp = OV_AgentConfLogRegisterWith(opt.verbose ? OV_LOG_TRACE : OV_LOG_WARNING,
                                                     ConverterLogOutput) == 0;
        status = cmd->run(opt);
        if (confLogUp) {
            OV_AgentConfLogUnregister();
        }
    }
    AgentMemModuleUnregister();
    std::fflush(stdout);
    OV_LogSetLineSink(nullptr);
    return status;
}

} // namespace pdctl
