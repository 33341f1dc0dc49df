// agentsim: plays the agent's end of the IMC configuration channel so pdtool
// (and provisioning scripts) can be tried without the agent.
#include "agentsim/sim_options.h"
#include "agentsim/sim_os.h"
#include "agentsim/sim_server.h"
#include "base/errors.h"
#include "imc/pipe.h"
#include "imc/pipe_server.h"
#include "ov_version.h"

#include <atomic>
#include <cstdio>
#include <mutex>
#include <string>

namespace {

// What the stop watch reaches from its own thread.
struct StopTarget {
    std::mutex lock;
    std::atomic<bool> stop{false};
    OV_PipeServer *server = nullptr;
};

void OnStop(void *ctx) {
    auto *target = static_cast<StopTarget *>(ctx);
    std::lock_guard<std::mutex> guard(target->lock);
    target->stop.store(true);
    if (target->server != nullptr) {
        OV_PipeServerShutdown(target->server);
    }
}

int Fail(int status, const std::string &message) {
    std::fprintf(stderr, "agentsim: %s\n", message.c_str());
    return status;
}

int Run(const SimOptions &opt) {
    if (!opt.pipeDir.empty()) {
        SimSetPipeDir(opt.pipeDir);
    }
    const std::wstring pipeName = SimPipeName(opt.pipeName);
    char where[512];
    if (OV_ImcPipePath(pipeName.c_str(), where, sizeof where) != 0) {
        return Fail(SIM_EXIT_USAGE, "the pipe name '" + opt.pipeName + "' does not fit");
    }

    // Log lines (ours and the channel's) go to standard error from here on;
    // standard output carries the journal alone, when asked for.
    FILE *out = SimTakeStdout();
    FILE *journal = nullptr;
    if (opt.journal == "-") {
        journal = out;
    } else if (!opt.journal.empty()) {
        journal = SimOpenAppend(opt.journal);
        if (journal == nullptr) {
            return Fail(SIM_EXIT_FAILED, "cannot open the journal " + opt.journal);
        }
    }

    SimAgent agent(opt.sa, opt.faults, opt.state, journal);
    std::string error;
    if (agent.LoadState(&error) != 0) {
        return Fail(SIM_EXIT_FAILED, "state file " + opt.state + ": " + error);
    }
    if (!opt.readyFile.empty()) {
        SimRemoveFile(opt.readyFile); // left by an earlier run that was killed
    }

    StopTarget target;
    int32_t rc = SimStopWatchStart(OnStop, &target);
    if (rc != 0) {
        return Fail(SIM_EXIT_FAILED,
                    std::string("cannot watch for stop signals: ") + OV_StrError(-rc));
    }
    OV_PipeServer *server = nullptr;
    rc = OV_PipeServerCreate(pipeName.c_str(), opt.instances, &server);
    if (rc == -OV_EEXIST) {
        SimStopWatchEnd();
        return Fail(SIM_EXIT_NAME_OWNED,
                    std::string(where) + " is already served by another agent; not started");
    }
    if (rc != 0) {
        SimStopWatchEnd();
        // The usual cause of -22 is a socket path past the 107 bytes a socket
        // address holds; say so rather than leave a bare "Invalid argument".
        return Fail(SIM_EXIT_FAILED,
                    std::string("cannot serve ") + where + ": " + OV_StrError(-rc) + " (" +
                        std::to_string(rc) + ")" +
                        (rc == -OV_EINVAL ? "; is the name or socket path too long?" : ""));
    }
    {
        std::lock_guard<std::mutex> guard(target.lock);
        target.server = server;
        if (target.stop.load()) {
            OV_PipeServerShutdown(server); // asked to stop while starting
        }
    }
    std::fprintf(stderr, "agentsim %s, pid %u: serving %s, %u client(s) at once%s%s%s%s\n",
                 OV_VERSION_STRING, SimProcessId(), where, opt.instances,
                 opt.journal.empty() ? "" : ", journal ",
                 opt.journal.empty() ? ""
                                     : (opt.journal == "-" ? "on stdout" : opt.journal.c_str()),
                 opt.state.empty() ? "" : ", state ", opt.state.c_str());
    if (!opt.readyFile.empty()) {
        rc = SimWriteFileAtomic(opt.readyFile, "ready\n");
        if (rc != 0) {
            std::fprintf(stderr, "agentsim: cannot write the ready file %s: %s\n",
                         opt.readyFile.c_str(), OV_StrError(-rc));
        }
    }

    rc = SimServe(agent, server, target.stop);

    SimStopWatchEnd();
    {
        std::lock_guard<std::mutex> guard(target.lock);
        target.server = nullptr;
    }
    OV_PipeServerDestroy(server);
    if (!opt.readyFile.empty()) {
        SimRemoveFile(opt.readyFile);
    }
    if (journal != nullptr && journal != out) {
        std::fclose(journal);
    }
    if (out != nullptr) {
        std::fclose(out);
    }
    if (rc != 0) {
        return Fail(SIM_EXIT_FAILED, std::string("serving stopped: ") + OV_StrError(-rc));
    }
    std::fprintf(stderr, "agentsim %u: stopped\n", SimProcessId());
    return SIM_EXIT_OK;
}

} // namespace

int main(int argc, char **argv) {
    SimOptions opt;
    std::string error;
    if (SimParseOptions(argc, argv, &opt, &error) != 0) {
        std::fprintf(stderr, "agentsim: %s\nTry 'agentsim --help'.\n", error.c_str());
        return SIM_EXIT_USAGE;
    }
    if (opt.help) {
        std::fputs(SimUsage(), stdout);
        return SIM_EXIT_OK;
    }
    if (opt.version) {
        std::printf("agentsim %s\n", OV_VERSION_STRING);
        return SIM_EXIT_OK;
    }
    return Run(opt);
}
