// Load driver for agentsim: N clients send the set_ratelimit request (the same
// 16 + 72 bytes as pdtool) over the local socket and time each round trip.
// Bounded by a request count per client and a wall-clock limit; it only
// talks to the Unix-domain socket in the pipe directory.
//
//   bench_load [--clients N] [--requests R] [--seconds S] [--mode keep|connect]
//
// keep: one connection per client, requests back to back (server throughput).
// connect: a new connection per request, as every pdtool run makes one.
// Prints one line: mode, clients, requests, seconds, requests/s, p50 and p99
// latency in microseconds, errors. Exit status 1 when any request failed.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

constexpr size_t kHeaderLen = 16;
constexpr size_t kRecordLen = 72;

struct Options {
    int clients = 4;
    long requests = 20000; // per client
    double seconds = 10;
    bool keep = true;
};

struct ClientResult {
    std::vector<uint32_t> latencyNs;
    long errors = 0;
};

sockaddr_un SocketAddress() {
    const char *dir = std::getenv("OV_PIPE_DIR");
    if (dir == nullptr || *dir == '\0') {
        dir = "/run/orvane";
    }
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    std::snprintf(addr.sun_path, sizeof addr.sun_path, "%s/imc_config_pipe", dir);
    return addr;
}

// The request pdtool sends for the usage sample of set_ratelimit.
std::vector<uint8_t> Request() {
    std::vector<uint8_t> req(kHeaderLen + kRecordLen, 0);
    req[0] = 10;                 // module
    req[2] = 1;                  // function
    req[8] = kRecordLen;         // payload length
    req[kHeaderLen] = 1;         // RateLimitId
    req[kHeaderLen + 24] = 1;    // Type
    req[kHeaderLen + 64] = 0xA9; // flags
    return req;
}

int Connect(const sockaddr_un &addr) {
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        return -1;
    }
    // A stuck server must not hang the driver.
    timeval tv{3, 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &tv, sizeof tv);
    if (connect(fd, reinterpret_cast<const sockaddr *>(&addr), sizeof addr) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

bool SendAll(int fd, const uint8_t *buf, size_t n) {
    while (n > 0) {
        ssize_t w = send(fd, buf, n, MSG_NOSIGNAL);
        if (w <= 0) {
            return false;
        }
        buf += w;
        n -= static_cast<size_t>(w);
    }
    return true;
}

bool RecvAll(int fd, uint8_t *buf, size_t n) {
    while (n > 0) {
        ssize_t r = recv(fd, buf, n, 0);
        if (r <= 0) {
            return false;
        }
        buf += r;
        n -= static_cast<size_t>(r);
    }
    return true;
}

// One round trip on fd: the request out, a 16-byte status-0 reply back.
bool RoundTrip(int fd, const std::vector<uint8_t> &req) {
    uint8_t reply[kHeaderLen];
    if (!SendAll(fd, req.data(), req.size()) || !RecvAll(fd, reply, sizeof reply)) {
        return false;
    }
    int32_t status;
    uint64_t payloadLen;
    std::memcpy(&status, reply, sizeof status);
    std::memcpy(&payloadLen, reply + 8, sizeof payloadLen);
    return status == 0 && payloadLen == 0;
}

void RunClient(const Options &opt, const sockaddr_un &addr, Clock::time_point deadline,
               const std::atomic<bool> &go, ClientResult *out) {
    const std::vector<uint8_t> req = Request();
    out->latencyNs.reserve(static_cast<size_t>(opt.requests));
    while (!go.load(std::memory_order_acquire)) {
        std::this_thread::yield();
    }
    int fd = -1;
    for (long i = 0; i < opt.requests && Clock::now() < deadline; ++i) {
        Clock::time_point t0 = Clock::now();
        if (fd < 0) {
            fd = Connect(addr);
        }
        bool ok = fd >= 0 && RoundTrip(fd, req);
        if (!ok || !opt.keep) {
            if (fd >= 0) {
                close(fd);
            }
            fd = -1;
        }
        Clock::time_point t1 = Clock::now();
        if (!ok) {
            ++out->errors;
            continue;
        }
        out->latencyNs.push_back(static_cast<uint32_t>(std::min<int64_t>(
            std::chrono::duration_cast<std::chrono::nanoseconds>(t1 - t0).count(), UINT32_MAX)));
    }
    if (fd >= 0) {
        close(fd);
    }
}

bool ParseOptions(int argc, char **argv, Options *opt) {
    for (int i = 1; i < argc; ++i) {
        std::string a = argv[i];
        const char *v = i + 1 < argc ? argv[i + 1] : nullptr;
        if (v == nullptr) {
            return false;
        }
        if (a == "--clients") {
            opt->clients = std::atoi(v);
        } else if (a == "--requests") {
            opt->requests = std::atol(v);
        } else if (a == "--seconds") {
            opt->seconds = std::atof(v);
        } else if (a == "--mode" &&
                   (std::strcmp(v, "keep") == 0 || std::strcmp(v, "connect") == 0)) {
            opt->keep = std::strcmp(v, "keep") == 0;
        } else {
            return false;
        }
        ++i;
    }
    // Bounded on purpose: at most 64 clients, 1e6 requests each, 60 seconds.
    return opt->clients >= 1 && opt->clients <= 64 && opt->requests >= 1 &&
           opt->requests <= 1000000 && opt->seconds > 0 && opt->seconds <= 60;
}

double Percentile(const std::vector<uint32_t> &sorted, double p) {
    if (sorted.empty()) {
        return 0;
    }
    auto idx = static_cast<size_t>(std::lround(p * static_cast<double>(sorted.size() - 1)));
    return sorted[idx] / 1e3;
}

} // namespace

int main(int argc, char **argv) {
    Options opt;
    if (!ParseOptions(argc, argv, &opt)) {
        std::fprintf(stderr, "usage: bench_load [--clients 1..64] [--requests 1..1000000] "
                             "[--seconds S<=60] [--mode keep|connect]\n");
        return 2;
    }
    const sockaddr_un addr = SocketAddress();
    std::vector<ClientResult> results(static_cast<size_t>(opt.clients));
    std::vector<std::thread> threads;
    threads.reserve(results.size());
    std::atomic<bool> go{false};
    const auto limit =
        std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(opt.seconds));
    Clock::time_point start = Clock::now();
    Clock::time_point deadline = start + limit;
    for (ClientResult &r : results) {
        threads.emplace_back(RunClient, std::cref(opt), std::cref(addr), deadline, std::cref(go),
                             &r);
    }
    start = Clock::now();
    go.store(true, std::memory_order_release);
    for (std::thread &t : threads) {
        t.join();
    }
    double elapsed = std::chrono::duration<double>(Clock::now() - start).count();

    std::vector<uint32_t> all;
    long errors = 0;
    for (const ClientResult &r : results) {
        all.insert(all.end(), r.latencyNs.begin(), r.latencyNs.end());
        errors += r.errors;
    }
    std::sort(all.begin(), all.end());
    std::printf("mode=%s clients=%d requests=%zu seconds=%.3f rps=%.0f p50_us=%.1f p99_us=%.1f "
                "errors=%ld\n",
                opt.keep ? "keep" : "connect", opt.clients, all.size(), elapsed,
                static_cast<double>(all.size()) / elapsed, Percentile(all, 0.50),
                Percentile(all, 0.99), errors);
    return errors == 0 ? 0 : 1;
}
