// agentsim's command line: the options, their checks and the --help text.
#pragma once

#include "agentsim/sim_faults.h"
#include "agentsim/sim_handlers.h"

#include <cstdint>
#include <string>

/// Exit statuses of the program.
constexpr int SIM_EXIT_OK = 0;
constexpr int SIM_EXIT_FAILED = 1; ///< start-up failed for another reason
constexpr int SIM_EXIT_USAGE = 2;
constexpr int SIM_EXIT_NAME_OWNED = 3;

struct SimOptions {
    bool help = false;
    bool version = false;
    std::string pipeDir; ///< empty: $OV_PIPE_DIR, else /run/orvane (POSIX only)
    std::string pipeName = "imc_config_pipe";
    uint32_t instances = 3;
    std::string journal; ///< empty: none; "-": standard output
    std::string state;   ///< empty: nothing survives a restart
    std::string readyFile;
    AgentSaClusterInfo sa{};
    SimFaults faults;
};

/// Reads argv[1..argc). Options are long only, "--name VALUE" or
/// "--name=VALUE". Returns 0, or -22 with a one-line message in *error.
int32_t SimParseOptions(int argc, const char *const *argv, SimOptions *out, std::string *error);

/// The --help text.
const char *SimUsage();

/// "\\.\pipe\" + name as a wide string. The name was checked by the parser
/// (printable ASCII without slashes).
std::wstring SimPipeName(const std::string &name);
