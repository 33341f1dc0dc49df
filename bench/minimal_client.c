/* The floor of one pdtool run: connects to the agent's socket, sends the
 * 16-byte header (module 10, function 1, payload length 72) and the 72-byte
 * rate-limit record of the usage sample, exactly the bytes of
 * `pdtool set_ratelimit/<usage sample>`, reads the reply and exits.
 * Linked statically, no json-c, no output: nothing but the round trip.
 * Exit status 0 when the agent answered 0, 1 otherwise. */
#include <poll.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

enum { kHeaderLen = 16, kRecordLen = 72, kWaitMs = 3000 };

static int ReadAll(int fd, uint8_t *buf, size_t n) {
    size_t got = 0;
    while (got < n) {
        ssize_t r = recv(fd, buf + got, n - got, 0);
        if (r <= 0) {
            return -1;
        }
        got += (size_t)r;
    }
    return 0;
}

int main(void) {
    /* The same place pdtool looks: $OV_PIPE_DIR/imc_config_pipe. */
    const char *dir = getenv("OV_PIPE_DIR");
    if (dir == NULL || dir[0] == '\0') {
        dir = "/run/orvane";
    }
    struct sockaddr_un addr;
    memset(&addr, 0, sizeof addr);
    addr.sun_family = AF_UNIX;
    size_t dirLen = strlen(dir);
    static const char kName[] = "/imc_config_pipe";
    if (dirLen + sizeof kName > sizeof addr.sun_path) {
        return 1;
    }
    memcpy(addr.sun_path, dir, dirLen);
    memcpy(addr.sun_path + dirLen, kName, sizeof kName);

    /* Header: module 10, function 1 (u16 at 2), payload length 72 (u64 at 8).
     * Record of {"RateLimitId": 1, "Type": 1, "UpdateType": 1,
     * "PersistentFlag": true, ...}: id 1 at 0, type 1 at 24, flags 0x00A9 at
     * 64 (UpdateType, the two per-source Update bits, Persistent). */
    uint8_t req[kHeaderLen + kRecordLen];
    memset(req, 0, sizeof req);
    req[0] = 10;
    req[2] = 1;
    req[8] = kRecordLen;
    uint8_t *rec = req + kHeaderLen;
    rec[0] = 1;
    rec[24] = 1;
    rec[64] = 0xA9;

    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0 || connect(fd, (const struct sockaddr *)&addr, sizeof addr) != 0) {
        return 1;
    }
    size_t sent = 0;
    while (sent < sizeof req) {
        ssize_t w = send(fd, req + sent, sizeof req - sent, MSG_NOSIGNAL);
        if (w <= 0) {
            return 1;
        }
        sent += (size_t)w;
    }
    struct pollfd pfd = {fd, POLLIN, 0};
    if (poll(&pfd, 1, kWaitMs) != 1) {
        return 1;
    }
    uint8_t reply[kHeaderLen];
    if (ReadAll(fd, reply, sizeof reply) != 0) {
        return 1;
    }
    int32_t status;
    memcpy(&status, reply, sizeof status);
    uint64_t payloadLen;
    memcpy(&payloadLen, reply + 8, sizeof payloadLen);
    /* A set answers with no data; anything else is read and dropped. */
    uint8_t sink[256];
    while (payloadLen > 0) {
        size_t chunk = payloadLen < sizeof sink ? (size_t)payloadLen : sizeof sink;
        if (ReadAll(fd, sink, chunk) != 0) {
            return 1;
        }
        payloadLen -= chunk;
    }
    close(fd);
    return status == 0 ? 0 : 1;
}
