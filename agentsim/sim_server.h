// The simulator's serving core: answers checked requests (faults, handlers,
// state file, journal) and serves connections of an OV_PipeServer, each on a
// thread of its own, until told to stop.
#pragma once

#include "agentsim/sim_faults.h"
#include "agentsim/sim_handlers.h"
#include "agentsim/sim_journal.h"
#include "imc/pipe_server.h"

#include <atomic>
#include <cstdint>
#include <mutex>
#include <span>
#include <string>
#include <vector>

/// What to send back for one request.
struct SimAnswer {
    int32_t status = 0;
    std::vector<uint8_t> data;
    SimFaultPlan plan;
};

class SimAgent {
  public:
    /// journal may be nullptr; it stays the caller's. statePath empty: no state file.
    SimAgent(const AgentSaClusterInfo &sa, SimFaults faults, std::string statePath, FILE *journal);

    /// Reads the state file (when there is one). Returns 0 or a negative code
    /// with a message in *error.
    int32_t LoadState(std::string *error);

    /// Answers one request whose header passed the check: applies the faults'
    /// status, runs the handler, rewrites the state file when the persistent
    /// records changed (a failed write answers its code), writes the journal.
    SimAnswer Answer(uint8_t module, uint16_t function, std::span<const uint8_t> payload);

    /// Journals a request that was not answered; header holds its 16 bytes.
    void Refused(const uint8_t *header, const char *why);

  private:
    std::mutex lock_; ///< guards ctx_ and the state file
    SimContext ctx_;
    SimFaults faults_;
    std::string statePath_;
    SimJournal journal_;
};

/// How long a connection waits for the next request before it looks at the
/// stop flag again.
constexpr uint32_t SIM_IDLE_POLL_MS = 200;

/// Serves one connection until the client leaves, a request is refused, a
/// fault closes it, or stop is set; then closes conn.
void SimServeConnection(SimAgent &agent, OV_PipeConn *conn, const std::atomic<bool> &stop);

/// Accepts clients until stop is set and OV_PipeServerShutdown wakes the
/// accept, serving each on its own thread; returns once every connection is
/// closed. Returns 0, or -12 when no message buffer could be had.
int32_t SimServe(SimAgent &agent, OV_PipeServer *server, const std::atomic<bool> &stop);
