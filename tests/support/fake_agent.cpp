// The single-threaded stand-in agent of the client fuzz targets (POSIX).
#include "tests/support/fake_agent.h"

#include "tests/support/test_server.h"

#include "imc/conf_client.h"
#include "imc/flexmsg.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace ovtest {

namespace {

constexpr const char *kName = "fuzz_agent";
constexpr const wchar_t *kPipeName = L"\\\\.\\pipe\\fuzz_agent";

std::string g_socketPath;

// Registered after the directory's own clean-up, so it runs first.
void RemoveSocket() {
    unlink(g_socketPath.c_str());
}

[[noreturn]] void SetUpFailed(const char *what) {
    std::fprintf(stderr, "fake agent: %s: %s\n", what, std::strerror(errno));
    std::abort();
}

} // namespace

FakeAgent &FakeAgent::Get() {
    static FakeAgent *agent = new FakeAgent();
    return *agent;
}

FakeAgent::FakeAgent() {
    const std::string &dir = UsePrivatePipeDir();
    if (dir.empty()) {
        SetUpFailed("pipe directory");
    }
    g_socketPath = dir + "/" + kName;
    std::atexit(RemoveSocket);
    OV_ImcConfClientSetPipeName(kPipeName);
    // Held for the whole run, so the client's start and stop do not register
    // and unregister the message module every time.
    if (OV_FlexMsgModuleStart() != 0) {
        SetUpFailed("message module");
    }

    listenFd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    if (listenFd_ < 0 || g_socketPath.size() >= sizeof addr.sun_path) {
        SetUpFailed("socket");
    }
    std::memcpy(addr.sun_path, g_socketPath.c_str(), g_socketPath.size() + 1);
    if (bind(listenFd_, reinterpret_cast<sockaddr *>(&addr), sizeof addr) != 0 ||
        listen(listenFd_, 8) != 0) {
        SetUpFailed("listen");
    }
}

bool FakeAgent::Begin(const uint8_t *reply, size_t len, size_t *sentOut) {
    if (OV_ImcConfClientInit() != 0) {
        return false;
    }
    connFd_ = accept4(listenFd_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (connFd_ < 0) {
        SetUpFailed("accept");
    }
    // What does not fit in the socket buffer is left out: the client then
    // sees a shorter stream, which is just another input.
    size_t sent = 0;
    while (sent < len) {
        ssize_t n = send(connFd_, reply + sent, len - sent, MSG_NOSIGNAL);
        if (n <= 0) {
            break;
        }
        sent += static_cast<size_t>(n);
    }
    shutdown(connFd_, SHUT_WR);
    if (sentOut != nullptr) {
        *sentOut = sent;
    }
    return true;
}

std::vector<uint8_t> FakeAgent::End() {
    // Sends are complete once the client returns: its bytes are all queued.
    std::vector<uint8_t> request;
    uint8_t buf[4096];
    for (;;) {
        ssize_t n = recv(connFd_, buf, sizeof buf, 0);
        if (n <= 0) {
            break;
        }
        request.insert(request.end(), buf, buf + n);
    }
    OV_ImcConfClientExit();
    close(connFd_);
    connFd_ = -1;
    // A client that reconnected would wait in the queue: none should.
    if (accept4(listenFd_, nullptr, nullptr, SOCK_CLOEXEC) >= 0) {
        std::fprintf(stderr, "fake agent: the client connected again\n");
        std::abort();
    }
    return request;
}

} // namespace ovtest
