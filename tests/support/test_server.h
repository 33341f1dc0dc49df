// Test support for the channel: an in-process agent end that runs a scripted
// conversation on each connection, private pipe names, and the bytes of
// headers as they must appear on the wire.
#pragma once

#include "imc/flexmsg.h"
#include "imc/pipe_server.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace ovtest {

using Bytes = std::vector<uint8_t>;

/// Points the POSIX pipe directory at a private temporary directory for this
/// process (removed at exit, once empty) and returns it; "" when it could
/// not be made, and on Windows, where there is nothing to do.
const std::string &UsePrivatePipeDir();

/// A pipe name no other test or process uses.
std::wstring UniquePipeName(const char *tag);

/// A request header as it must appear on the wire, built from its offsets in
/// a zeroed buffer: module at 0, function at 2, payload length at 8.
Bytes RequestHeader(uint8_t module, uint16_t func, uint64_t payloadLen);
/// A reply header: status at 0, payload length at 8, the rest zero.
Bytes ReplyHeader(int32_t status, uint64_t payloadLen);
Bytes Concat(const Bytes &a, const Bytes &b);
/// n bytes counting up from seed.
Bytes Pattern(size_t n, uint8_t seed);

class TestServer;
/// The conversation on one accepted connection; the server closes the
/// connection when it returns. index counts connections from 0.
using ConnScript = std::function<void(TestServer &server, OV_PipeConn *conn, int index)>;

/// Serves a pipe name from `threads` threads until destroyed.
class TestServer {
  public:
    TestServer(const std::wstring &name, ConnScript script, uint32_t maxInstances = 3,
               int threads = 1);
    ~TestServer();
    TestServer(const TestServer &) = delete;
    TestServer &operator=(const TestServer &) = delete;

    /// 0 when the server end exists.
    int32_t CreateResult() const { return createRc_; }
    /// Connections accepted so far.
    int Served() const { return served_.load(); }

    /// Reads one request (header and payload); records and returns its bytes.
    /// Returns false when the client went away or sent a bad header.
    bool ReadRequest(OV_PipeConn *conn, Bytes *request = nullptr);
    /// Sends a reply with status and data.
    bool Reply(OV_PipeConn *conn, int32_t status, const Bytes &data = {});
    /// Every request read so far, in order.
    std::vector<Bytes> Requests();

    /// Lets scripts that wait in WaitRelease go on (also done on destruction).
    void Release();
    /// Waits until Release or timeoutMs; true when released.
    bool WaitRelease(uint32_t timeoutMs);

  private:
    void Loop();

    OV_PipeServer *server_ = nullptr;
    int32_t createRc_ = 0;
    ConnScript script_;
    std::atomic<int> served_{0};
    std::vector<std::thread> threads_;
    std::mutex lock_;
    std::condition_variable released_;
    bool releaseFlag_ = false;
    std::vector<Bytes> requests_;
};

/// Answers every request on the connection with status and data until the
/// client goes away.
ConnScript ReplyToEach(int32_t status, const Bytes &data = {});

} // namespace ovtest
