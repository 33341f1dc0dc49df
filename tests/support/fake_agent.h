// An in-process stand-in for the agent's end of the configuration channel,
// for the fuzz targets that drive the real client (POSIX): a Unix-domain
// socket listening in the private pipe directory, played single-threaded. The client
// connects (the kernel completes the connect from the listen queue), the
// reply bytes are written and the write side is shut before the client sends
// anything, so the client reads exactly those bytes and then the end of the
// stream: no thread, no waiting, the same order on every run.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace ovtest {

class FakeAgent {
  public:
    /// The one agent of the process, made on first use (aborts when it cannot
    /// be set up); its socket and directory are removed at exit.
    static FakeAgent &Get();

    /// Starts the configuration client (which connects), accepts its
    /// connection and hands it the reply stream: as much of it as the socket
    /// buffer takes (*sent, when given). Returns false when the client could
    /// not start.
    bool Begin(const uint8_t *reply, size_t len, size_t *sent = nullptr);
    /// Collects every byte the client sent, then stops the client and closes
    /// the connection. Returns the bytes.
    std::vector<uint8_t> End();

    FakeAgent(const FakeAgent &) = delete;
    FakeAgent &operator=(const FakeAgent &) = delete;

  private:
    FakeAgent();
    int listenFd_ = -1;
    int connFd_ = -1;
};

} // namespace ovtest
