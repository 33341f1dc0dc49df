// POSIX: the server's identity is the uid its socket was listening under,
// which the kernel records and no peer can forge.
#include "imc/peer_identity.h"

#include "base/errors.h"
#include "base/log.h"

#include <sys/socket.h>
#include <unistd.h>

int32_t OV_ImcCheckPeer(OV_PipeHandle h) {
    ucred cred{};
    socklen_t len = sizeof cred;
    long uid = -1; // unknown: never trusted
    if (getsockopt(static_cast<int>(h), SOL_SOCKET, SO_PEERCRED, &cred, &len) == 0 &&
        len == sizeof cred) {
        uid = static_cast<long>(cred.uid);
    }
    if (uid == 0 || uid == static_cast<long>(geteuid())) {
        return 0;
    }
    OV_Log("<Error>[%s:%d]Pipe server is not trusted! uid=%ld\n", __func__, __LINE__, uid);
    return -OV_EACCES;
}
