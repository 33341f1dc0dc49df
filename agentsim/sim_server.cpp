// The simulator's serving core: answers, faults on the wire, connections and
// the accept loop.
#include "agentsim/sim_server.h"

#include "agentconf/json_conv.h"
#include "agentsim/sim_state.h"
#include "base/errors.h"
#include "base/log.h"
#include "base/platform.h"
#include "imc/flexmsg.h"
#include "imc/imc_agent.h"
#include "imc/pipe.h"

#include <algorithm>
#include <cstring>
#include <list>
#include <memory>
#include <random>
#include <thread>

namespace {

constexpr uint32_t kAcceptPollMs = 500;
constexpr size_t kGarbageLen = 64;

struct MsgDeleter {
    void operator()(FlexMsg *msg) const { OV_FlexMsgFree(msg); }
};
using MsgPtr = std::unique_ptr<FlexMsg, MsgDeleter>;

// Waits ms, a slice at a time, so a stop is not held up by a long delay.
void SleepUnlessStopped(uint32_t ms, const std::atomic<bool> &stop) {
    const uint64_t until = OV_GetTickCount64() + ms;
    for (uint64_t now = OV_GetTickCount64(); now < until && !stop.load();
         now = OV_GetTickCount64()) {
        OV_SleepMs(static_cast<uint32_t>(std::min<uint64_t>(until - now, 50)));
    }
}

const char *FaultShown(const SimFaultPlan &plan) {
    if (plan.action.has_value()) {
        return SimFaultName(*plan.action);
    }
    return plan.delayMs > 0 ? SimFaultName(SimFaultKind::Delay) : nullptr;
}

// Sends the answer, damaged as its plan says. Returns false when the
// connection must close.
bool SendAnswer(OV_PipeConn *conn, FlexMsg *msg, const SimAnswer &answer) {
    if (answer.data.empty()) {
        OV_ImcAgentSetStatusReply(msg, answer.status);
    } else if (OV_ImcAgentSetDataReply(msg, answer.status, answer.data.data(),
                                       answer.data.size()) != 0) {
        OV_Log("<Error>[%s:%d]No memory for a reply of %zu bytes\n", __func__, __LINE__,
               answer.data.size());
        return false;
    }
    const std::optional<SimFaultKind> &action = answer.plan.action;
    size_t sendLen = static_cast<size_t>(msg->length);
    if (action == SimFaultKind::Close) {
        return false;
    }
    if (action == SimFaultKind::Truncate) {
        sendLen =
            answer.data.empty() ? IMC_HEADER_LEN / 2 : IMC_HEADER_LEN + answer.data.size() / 2;
    } else if (action == SimFaultKind::Overlong) {
        uint64_t announced = SIM_OVERLONG_LEN;
        std::memcpy(msg->data + offsetof(ImcMsgHeader, payloadLen), &announced, sizeof announced);
    } else if (action == SimFaultKind::Garbage) {
        std::random_device seed;
        std::mt19937_64 random(seed());
        uint8_t noise[kGarbageLen];
        for (uint8_t &b : noise) {
            b = static_cast<uint8_t>(random());
        }
        OV_PipeConnWrite(conn, noise, sizeof noise, OV_IMC_WAIT_MS);
        return false;
    }
    int32_t rc = OV_PipeConnWrite(conn, msg->data, sendLen, OV_IMC_WAIT_MS);
    // A damaged reply leaves the stream out of step: the connection ends.
    return rc == 0 && (!action.has_value() || action == SimFaultKind::Status);
}

} // namespace

SimAgent::SimAgent(const AgentSaClusterInfo &sa, SimFaults faults, std::string statePath,
                   FILE *journal)
    : faults_(std::move(faults)), statePath_(std::move(statePath)), journal_(journal) {
    ctx_.sa = sa;
}

int32_t SimAgent::LoadState(std::string *error) {
    if (statePath_.empty()) {
        return 0;
    }
    std::lock_guard<std::mutex> guard(lock_);
    return SimStateLoad(ctx_, statePath_, error);
}

SimAnswer SimAgent::Answer(uint8_t module, uint16_t function, std::span<const uint8_t> payload) {
    SimAnswer answer;
    answer.plan = faults_.Plan(module, function);
    if (answer.plan.action == SimFaultKind::Status) {
        answer.status = answer.plan.status; // the handler never sees the request
    } else {
        std::lock_guard<std::mutex> guard(lock_);
        SimResult result = SimDispatch(ctx_, module, function, payload);
        answer.status = result.status;
        answer.data = std::move(result.reply);
        // On the disk before the reply: an acknowledged change survives a kill.
        if (result.persistentChanged && !statePath_.empty()) {
            int32_t rc = SimStateSave(ctx_.store, statePath_);
            if (rc != 0) {
                OV_Log("<Error>[%s:%d]Failed to write the state file %s (%d:%s)\n", __func__,
                       __LINE__, statePath_.c_str(), rc, OV_StrError(-rc));
                answer.status = rc;
            }
        }
    }
    if (journal_.Enabled()) {
        OV_JsonPtr record(SimDecodeRequest(module, function, payload));
        SimJournalEntry entry;
        OV_GetLocalTime(&entry.time);
        entry.module = module;
        entry.function = function;
        entry.command = SimCommandName(module, function, payload);
        entry.status = answer.status;
        entry.length = payload.size();
        entry.payload = payload;
        entry.record = record.get();
        entry.fault = FaultShown(answer.plan);
        journal_.Write(entry);
    }
    return answer;
}

void SimAgent::Refused(const uint8_t *header, const char *why) {
    if (!journal_.Enabled()) {
        return;
    }
    ImcMsgHeader h;
    std::memcpy(&h, header, sizeof h);
    SimJournalEntry entry;
    OV_GetLocalTime(&entry.time);
    entry.module = h.moduleId;
    entry.function = h.functionId;
    entry.answered = false;
    entry.error = why;
    entry.length = h.payloadLen;
    journal_.Write(entry);
}

void SimServeConnection(SimAgent &agent, OV_PipeConn *conn, const std::atomic<bool> &stop) {
    MsgPtr msg(OV_FlexMsgAlloc());
    while (msg != nullptr && !stop.load()) {
        int32_t rc = OV_ImcAgentRecvRequest(conn, msg.get(), SIM_IDLE_POLL_MS);
        if (rc == -OV_ETIMEDOUT) {
            continue;
        }
        if (rc == -OV_EINVAL || rc == -OV_ENOMEM) {
            // The refused header stays in the data area (only the length was
            // reset). The rest of the stream is out of step: close.
            agent.Refused(msg->data,
                          rc == -OV_EINVAL ? "header check failed" : "no memory for the payload");
            break;
        }
        if (rc != 0) {
            break;
        }
        const ImcMsgHeader *header = OV_ImcMsgHeader(msg.get());
        SimAnswer answer = agent.Answer(
            header->moduleId, header->functionId,
            std::span<const uint8_t>(OV_ImcMsgPayload(msg.get()),
                                     static_cast<size_t>(OV_ImcMsgPayloadLen(msg.get()))));
        if (answer.plan.delayMs > 0) {
            SleepUnlessStopped(answer.plan.delayMs, stop);
        }
        if (!SendAnswer(conn, msg.get(), answer)) {
            break;
        }
    }
    OV_PipeConnClose(conn);
}

int32_t SimServe(SimAgent &agent, OV_PipeServer *server, const std::atomic<bool> &stop) {
    int32_t rc = OV_FlexMsgModuleStart();
    if (rc != 0) {
        return rc;
    }
    struct Worker {
        std::thread thread;
        std::shared_ptr<std::atomic<bool>> done;
    };
    std::list<Worker> workers;
    while (!stop.load()) {
        // Threads of connections that have ended are joined as we go.
        for (auto it = workers.begin(); it != workers.end();) {
            if (it->done->load()) {
                it->thread.join();
                it = workers.erase(it);
            } else {
                ++it;
            }
        }
        OV_PipeConn *conn = nullptr;
        rc = OV_PipeServerAccept(server, kAcceptPollMs, &conn);
        if (rc == -OV_ETIMEDOUT) {
            continue;
        }
        if (rc == -OV_EINTR) {
            break;
        }
        if (rc != 0) {
            OV_Log("<Error>[%s:%d]Failed to accept a client (%d:%s)\n", __func__, __LINE__, rc,
                   OV_StrError(-rc));
            OV_SleepMs(100);
            continue;
        }
        try {
            // The list node first: once the thread runs, nothing may throw.
            Worker &w =
                workers.emplace_back(Worker{{}, std::make_shared<std::atomic<bool>>(false)});
            w.thread = std::thread([&agent, conn, &stop, done = w.done] {
                SimServeConnection(agent, conn, stop);
                done->store(true);
            });
        } catch (const std::exception &) {
            // No thread for this client: it sees the pipe close.
            OV_Log("<Error>[%s:%d]Failed to start a thread for a client\n", __func__, __LINE__);
            if (!workers.empty() && !workers.back().thread.joinable()) {
                workers.pop_back();
            }
            OV_PipeConnClose(conn);
        }
    }
    for (Worker &w : workers) {
        w.thread.join();
    }
    OV_FlexMsgModuleStop();
    return 0;
}
