// Windows: the server's identity is the pipe's owner, which a creator can set
// only to its own user or a group its token may own objects as; failing that,
// the user of the process that serves the pipe.
#include "imc/peer_identity.h"

#include "base/errors.h"
#include "base/log.h"
#include "imc/win32_handle.h"

#include <cstring>

namespace {

// Process and token handles mean "none" with NULL.
struct NullHandleTraits {
    static HANDLE Invalid() { return nullptr; }
};
using ScopedKernelHandle = OV_ScopedHandle<NullHandleTraits>;

struct LocalFreeGuard {
    HLOCAL mem;
    ~LocalFreeGuard() { LocalFree(mem); }
};

// "" until a SID has been read; the longest SID text is 184 characters.
struct SidText {
    char text[192] = "";
};

bool ToText(PSID sid, SidText *out) {
    LPSTR text = nullptr;
    if (sid == nullptr || !ConvertSidToStringSidA(sid, &text)) {
        return false;
    }
    LocalFreeGuard guard{text};
    size_t len = std::strlen(text);
    if (len >= sizeof out->text) {
        return false;
    }
    std::memcpy(out->text, text, len + 1);
    return true;
}

// The user of a process's primary token.
bool ProcessUser(HANDLE process, SidText *out) {
    HANDLE raw = nullptr;
    if (!OpenProcessToken(process, TOKEN_QUERY, &raw)) {
        return false;
    }
    ScopedKernelHandle token(raw);
    alignas(TOKEN_USER) BYTE buf[sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE];
    DWORD len = 0;
    if (!GetTokenInformation(token.Get(), TokenUser, buf, sizeof buf, &len)) {
        return false;
    }
    return ToText(reinterpret_cast<TOKEN_USER *>(buf)->User.Sid, out);
}

bool PipeOwner(HANDLE pipe, SidText *out) {
    PSID owner = nullptr;
    PSECURITY_DESCRIPTOR sd = nullptr;
    if (GetSecurityInfo(pipe, SE_KERNEL_OBJECT, OWNER_SECURITY_INFORMATION, &owner, nullptr,
                        nullptr, nullptr, &sd) != ERROR_SUCCESS) {
        return false;
    }
    LocalFreeGuard guard{sd};
    return ToText(owner, out);
}

bool ServerProcessUser(HANDLE pipe, SidText *out) {
    ULONG pid = 0;
    if (!GetNamedPipeServerProcessId(pipe, &pid)) {
        return false;
    }
    ScopedKernelHandle process(OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, pid));
    return process && ProcessUser(process.Get(), out);
}

} // namespace

int32_t OV_ImcCheckPeer(OV_PipeHandle handle) {
    HANDLE pipe = reinterpret_cast<HANDLE>(handle);
    SidText user;
    SidText owner;
    SidText server;
    ProcessUser(GetCurrentProcess(), &user);
    PipeOwner(pipe, &owner);
    if (OV_ImcTrustedOwnerSid(owner.text, user.text)) {
        return 0;
    }
    // Wine keeps no owner for a pipe made without a security descriptor and
    // gives one made with a descriptor the token's default owner group, so
    // there the server process's user is what says who serves the pipe.
    ServerProcessUser(pipe, &server);
    if (OV_ImcTrustedOwnerSid(server.text, user.text)) {
        return 0;
    }
    OV_Log("<Error>[%s:%d]Pipe server is not trusted! owner=%s server user=%s\n", __func__,
           __LINE__, owner.text[0] != '\0' ? owner.text : "unknown",
           server.text[0] != '\0' ? server.text : "unknown");
    return -OV_EACCES;
}
