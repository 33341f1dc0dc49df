// Test support: child processes on Windows (CreateProcessW, anonymous pipes).
#include "tests/support/process.h"

#include "base/errors.h"
#include "base/win32.h"
#include "tests/support/process_capture.h"

#include <map>
#include <mutex>
#include <thread>

namespace ovtest {

namespace {

// Inheritable handles exist between their creation and the child's start;
// one start at a time keeps them out of children started by other threads.
std::mutex g_startLock;

int32_t LastError() {
    return OV_Win32ErrToErrno(static_cast<int32_t>(GetLastError()));
}

std::wstring Wide(const std::string &text) {
    if (text.empty()) {
        return {};
    }
    int n = MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0);
    std::wstring out(static_cast<size_t>(n > 0 ? n : 0), L'\0');
    if (n > 0) {
        MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), out.data(), n);
    }
    return out;
}

// One argument quoted so that the child's runtime splits it back unchanged:
// backslashes are literal except before a quote.
void AppendQuoted(std::wstring *cmd, const std::wstring &arg) {
    if (!arg.empty() && arg.find_first_of(L" \t\n\v\"") == std::wstring::npos) {
        *cmd += arg;
        return;
    }
    *cmd += L'"';
    size_t backslashes = 0;
    for (wchar_t c : arg) {
        if (c == L'\\') {
            ++backslashes;
            continue;
        }
        if (c == L'"') {
            cmd->append(backslashes * 2 + 1, L'\\');
        } else {
            cmd->append(backslashes, L'\\');
        }
        backslashes = 0;
        *cmd += c;
    }
    cmd->append(backslashes * 2, L'\\');
    *cmd += L'"';
}

struct NoCaseLess {
    bool operator()(const std::wstring &a, const std::wstring &b) const {
        return _wcsicmp(a.c_str(), b.c_str()) < 0;
    }
};

// The inherited environment with the overrides applied, as a block of
// NUL-terminated "name=value" texts ending in an empty one, sorted by name.
std::wstring EnvironmentBlock(const EnvOverrides &overrides) {
    std::map<std::wstring, std::wstring, NoCaseLess> vars;
    wchar_t *block = GetEnvironmentStringsW();
    for (const wchar_t *e = block; e != nullptr && *e != L'\0'; e += wcslen(e) + 1) {
        std::wstring entry = e;
        // Names of the drive variables ("=C:") start with '='.
        size_t eq = entry.find(L'=', 1);
        if (eq != std::wstring::npos) {
            vars[entry.substr(0, eq)] = entry.substr(eq + 1);
        }
    }
    if (block != nullptr) {
        FreeEnvironmentStringsW(block);
    }
    for (const auto &[name, value] : overrides) {
        vars[Wide(name)] = Wide(value);
    }
    std::wstring out;
    for (const auto &[name, value] : vars) {
        out += name + L"=" + value;
        out += L'\0';
    }
    out += L'\0';
    return out;
}

void Drain(HANDLE h, CapturedText *sink) {
    char buf[16384];
    for (;;) {
        DWORD got = 0;
        if (!ReadFile(h, buf, sizeof buf, &got, nullptr) || got == 0) {
            break;
        }
        sink->Append(buf, got);
    }
    CloseHandle(h);
}

// Collects the exit code once the child has ended; true when it has.
bool Reap(Process::Impl *p, DWORD timeoutMs) {
    if (p->ended || p->process == nullptr) {
        return true;
    }
    if (WaitForSingleObject(p->process, timeoutMs) != WAIT_OBJECT_0) {
        return false;
    }
    DWORD code = 0;
    GetExitCodeProcess(p->process, &code);
    p->status = static_cast<int>(code);
    p->ended = true;
    p->JoinReaders();
    return true;
}

} // namespace

std::string NativePath(const std::string &path) {
    std::string out = path;
    if (!out.empty() && out[0] == '/') {
        out = "Z:" + out; // Wine's drive for the host's root directory
    }
    for (char &c : out) {
        if (c == '/') {
            c = '\\';
        }
    }
    return out;
}

Process::Process() : impl_(std::make_unique<Impl>()) {}

Process::~Process() {
    if (impl_->process != nullptr && !impl_->ended) {
        Kill();
    }
    impl_->JoinReaders();
    if (impl_->process != nullptr) {
        CloseHandle(impl_->process);
    }
}

int32_t Process::Start(const std::vector<std::string> &argv, const EnvOverrides &env) {
    if (argv.empty() || impl_->process != nullptr) {
        return -OV_EINVAL;
    }
    std::wstring app = Wide(NativePath(argv[0]));
    std::wstring cmd;
    for (size_t i = 0; i < argv.size(); ++i) {
        if (i > 0) {
            cmd += L' ';
        }
        AppendQuoted(&cmd, i == 0 ? app : Wide(argv[i]));
    }
    std::wstring envBlock = EnvironmentBlock(env);

    std::lock_guard<std::mutex> guard(g_startLock);
    SECURITY_ATTRIBUTES inherit{sizeof inherit, nullptr, TRUE};
    HANDLE outRead = nullptr;
    HANDLE outWrite = nullptr;
    HANDLE errRead = nullptr;
    HANDLE errWrite = nullptr;
    if (!CreatePipe(&outRead, &outWrite, &inherit, 0)) {
        return LastError();
    }
    if (!CreatePipe(&errRead, &errWrite, &inherit, 0)) {
        int32_t rc = LastError();
        CloseHandle(outRead);
        CloseHandle(outWrite);
        return rc;
    }
    SetHandleInformation(outRead, HANDLE_FLAG_INHERIT, 0);
    SetHandleInformation(errRead, HANDLE_FLAG_INHERIT, 0);
    HANDLE nul = CreateFileW(L"NUL", GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, &inherit,
                             OPEN_EXISTING, 0, nullptr);

    STARTUPINFOW si{};
    si.cb = sizeof si;
    si.dwFlags = STARTF_USESTDHANDLES;
    si.hStdInput = nul;
    si.hStdOutput = outWrite;
    si.hStdError = errWrite;
    PROCESS_INFORMATION pi{};
    // Its own process group, so that Interrupt can send it Ctrl-Break alone.
    BOOL ok = CreateProcessW(app.c_str(), cmd.data(), nullptr, nullptr, TRUE,
                             CREATE_UNICODE_ENVIRONMENT | CREATE_NEW_PROCESS_GROUP, envBlock.data(),
                             nullptr, &si, &pi);
    int32_t rc = ok ? 0 : LastError();
    CloseHandle(outWrite);
    CloseHandle(errWrite);
    if (nul != INVALID_HANDLE_VALUE) {
        CloseHandle(nul);
    }
    if (!ok) {
        CloseHandle(outRead);
        CloseHandle(errRead);
        return rc;
    }
    CloseHandle(pi.hThread);
    impl_->process = pi.hProcess;
    impl_->pid = pi.dwProcessId;
    impl_->outReader = std::thread(Drain, outRead, &impl_->out);
    impl_->errReader = std::thread(Drain, errRead, &impl_->err);
    return 0;
}

bool Process::Running() {
    return impl_->process != nullptr && !Reap(impl_.get(), 0);
}

bool Process::Interrupt() {
    return impl_->process != nullptr && !impl_->ended &&
           GenerateConsoleCtrlEvent(CTRL_BREAK_EVENT, static_cast<DWORD>(impl_->pid)) != FALSE;
}

void Process::Kill() {
    if (impl_->process == nullptr || impl_->ended) {
        return;
    }
    TerminateProcess(impl_->process, 1);
    Reap(impl_.get(), INFINITE);
}

} // namespace ovtest
