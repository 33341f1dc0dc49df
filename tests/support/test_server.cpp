// Test support for the channel: the scripted in-process agent end and wire helpers.
#include "tests/support/test_server.h"

#include "base/errors.h"
#include "imc/imc_agent.h"

#include <chrono>
#include <cstring>

namespace ovtest {

namespace {

constexpr uint32_t kAcceptSliceMs = 100;
constexpr uint32_t kIdleSliceMs = 100;

template <typename T>
void Put(Bytes &b, size_t offset, T value) {
    std::memcpy(b.data() + offset, &value, sizeof value);
}

} // namespace

Bytes RequestHeader(uint8_t module, uint16_t func, uint64_t payloadLen) {
    Bytes b(16, 0);
    Put(b, 0, module);
    Put(b, 2, func);
    Put(b, 8, payloadLen);
    return b;
}

Bytes ReplyHeader(int32_t status, uint64_t payloadLen) {
    Bytes b(16, 0);
    Put(b, 0, status);
    Put(b, 8, payloadLen);
    return b;
}

Bytes Concat(const Bytes &a, const Bytes &b) {
    Bytes out = a;
    out.insert(out.end(), b.begin(), b.end());
    return out;
}

Bytes Pattern(size_t n, uint8_t seed) {
    Bytes b(n);
    for (size_t i = 0; i < n; ++i) {
        b[i] = static_cast<uint8_t>(seed + i);
    }
    return b;
}

TestServer::TestServer(const std::wstring &name, ConnScript script, uint32_t maxInstances,
                       int threads)
    : script_(std::move(script)) {
    OV_FlexMsgModuleStart();
    createRc_ = OV_PipeServerCreate(name.c_str(), maxInstances, &server_);
    if (createRc_ != 0) {
        return;
    }
    for (int i = 0; i < threads; ++i) {
        threads_.emplace_back([this] { Loop(); });
    }
}

TestServer::~TestServer() {
    Release();
    if (server_ != nullptr) {
        OV_PipeServerShutdown(server_);
    }
    for (std::thread &t : threads_) {
        t.join();
    }
    OV_PipeServerDestroy(server_);
    OV_FlexMsgModuleStop();
}

void TestServer::Loop() {
    for (;;) {
        OV_PipeConn *conn = nullptr;
        int32_t rc = OV_PipeServerAccept(server_, kAcceptSliceMs, &conn);
        if (rc == -OV_ETIMEDOUT) {
            continue;
        }
        if (rc != 0) {
            return;
        }
        int index = served_++;
        script_(*this, conn, index);
        OV_PipeConnClose(conn);
    }
}

bool TestServer::ReadRequest(OV_PipeConn *conn, Bytes *request) {
    FlexMsg *msg = OV_FlexMsgAlloc();
    if (msg == nullptr) {
        return false;
    }
    int32_t rc;
    do {
        rc = OV_ImcAgentRecvRequest(conn, msg, kIdleSliceMs);
    } while (rc == -OV_ETIMEDOUT && !WaitRelease(0));
    if (rc == 0) {
        Bytes bytes(msg->data, msg->data + msg->length);
        std::lock_guard<std::mutex> guard(lock_);
        requests_.push_back(bytes);
        if (request != nullptr) {
            *request = std::move(bytes);
        }
    }
    OV_FlexMsgFree(msg);
    return rc == 0;
}

bool TestServer::Reply(OV_PipeConn *conn, int32_t status, const Bytes &data) {
    FlexMsg *msg = OV_FlexMsgAlloc();
    if (msg == nullptr) {
        return false;
    }
    bool ok = OV_ImcAgentSetDataReply(msg, status, data.data(), data.size()) == 0 &&
              OV_ImcAgentSendReply(conn, msg, 3000) == 0;
    OV_FlexMsgFree(msg);
    return ok;
}

std::vector<Bytes> TestServer::Requests() {
    std::lock_guard<std::mutex> guard(lock_);
    return requests_;
}

void TestServer::Release() {
    {
        std::lock_guard<std::mutex> guard(lock_);
        releaseFlag_ = true;
    }
    released_.notify_all();
}

bool TestServer::WaitRelease(uint32_t timeoutMs) {
    std::unique_lock<std::mutex> guard(lock_);
    return released_.wait_for(guard, std::chrono::milliseconds(timeoutMs),
                              [this] { return releaseFlag_; });
}

ConnScript ReplyToEach(int32_t status, const Bytes &data) {
    return [status, data](TestServer &server, OV_PipeConn *conn, int) {
        while (server.ReadRequest(conn)) {
            if (!server.Reply(conn, status, data)) {
                return;
            }
        }
    };
}

} // namespace ovtest
