// RAII ownership of Win32 handles for the Windows sources of imc/. The traits
// say which value means "no handle": files and pipes use
// INVALID_HANDLE_VALUE, events use NULL; mixing the two up leaks handles or
// closes the wrong one.
#pragma once

#include "base/win32.h"

#include <utility>

struct OV_FileHandleTraits {
    static HANDLE Invalid() { return INVALID_HANDLE_VALUE; }
};

struct OV_EventHandleTraits {
    static HANDLE Invalid() { return nullptr; }
};

template <typename Traits>
class OV_ScopedHandle {
  public:
    OV_ScopedHandle() = default;
    explicit OV_ScopedHandle(HANDLE h) : handle_(h) {}
    ~OV_ScopedHandle() { Reset(); }
    OV_ScopedHandle(const OV_ScopedHandle &) = delete;
    OV_ScopedHandle &operator=(const OV_ScopedHandle &) = delete;
    OV_ScopedHandle(OV_ScopedHandle &&other) noexcept : handle_(other.Release()) {}
    OV_ScopedHandle &operator=(OV_ScopedHandle &&other) noexcept {
        if (this != &other) {
            Reset(other.Release());
        }
        return *this;
    }

    bool Valid() const { return handle_ != Traits::Invalid(); }
    explicit operator bool() const { return Valid(); }
    HANDLE Get() const { return handle_; }
    /// Gives up ownership without closing.
    HANDLE Release() { return std::exchange(handle_, Traits::Invalid()); }
    void Reset(HANDLE h = Traits::Invalid()) {
        if (Valid()) {
            CloseHandle(handle_);
        }
        handle_ = h;
    }

  private:
    HANDLE handle_ = Traits::Invalid();
};

using OV_ScopedFile = OV_ScopedHandle<OV_FileHandleTraits>;
using OV_ScopedEvent = OV_ScopedHandle<OV_EventHandleTraits>;

/// A manual-reset, unsignalled, unnamed event (invalid when creation failed).
inline OV_ScopedEvent OV_CreateManualEvent() {
    return OV_ScopedEvent(CreateEventW(nullptr, TRUE, FALSE, nullptr));
}

/// Cancels an overlapped transfer that is still pending and waits until the
/// system has let go of the OVERLAPPED structure, so the structure and its
/// buffer may leave scope. Returns the bytes that the transfer completed.
inline DWORD OV_CancelPendingIo(HANDLE h, OVERLAPPED *ov) {
    DWORD done = 0;
    if (HasOverlappedIoCompleted(ov)) {
        GetOverlappedResult(h, ov, &done, FALSE);
        return done;
    }
    CancelIoEx(h, ov);
    GetOverlappedResult(h, ov, &done, TRUE);
    return done;
}
