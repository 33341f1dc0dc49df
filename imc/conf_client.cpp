// The configuration client: connection state, the locked exchange and the
// set/get operations built on it.
#include "imc/conf_client.h"

#include "base/errors.h"
#include "base/log.h"
#include "base/platform.h"

#include <climits>
#include <cstring>
#include <cwchar>

namespace {

constexpr size_t kPipeNameMax = 256;

OV_PipeHandle g_handle = OV_INVALID_PIPE_HANDLE;
OV_Mutex *g_mutex = nullptr;
bool g_msgStarted = false;

wchar_t g_pipeNameBuf[kPipeNameMax];
const wchar_t *g_pipeName = OV_IMC_CONF_PIPE_NAME;

// Text of a failure result; a handler may return any int, INT_MIN included.
const char *ErrText(int32_t rc) {
    return OV_StrError(rc == INT32_MIN ? INT32_MAX : -rc);
}

void CloseConnection() {
    if (g_handle != OV_INVALID_PIPE_HANDLE) {
        OV_ImcClose(g_handle);
        g_handle = OV_INVALID_PIPE_HANDLE;
    }
}

int32_t _OV_ImcConfConnect() {
    OV_Log("<Debug>[%s:%d]IMC conf client connnects to server\n", __func__, __LINE__);
    return OV_ImcConnect(g_pipeName, 0, &g_handle);
}

int32_t _OV_ImcRecvAllReply(OV_PipeHandle h, FlexMsg *msg) {
    int32_t rc = OV_ImcRecvAll(h, msg, IMC_HEADER_LEN, 1);
    if (rc != 0) {
        OV_Log("<Error>[%s:%d]Failed to receive header ret=%d\n", __func__, __LINE__, rc);
        return rc;
    }
    uint64_t payloadLen = OV_ImcMsgPayloadLen(msg);
    if (payloadLen != 0) {
        rc = OV_ImcRecvAll(h, msg, payloadLen, 1);
        if (rc != 0) {
            OV_Log("<Error>[%s:%d]Failed to receive payload ret=%d\n", __func__, __LINE__, rc);
        }
    }
    return rc;
}

// One locked send-and-receive. After any failure the connection is closed,
// so the next exchange starts on a fresh one. The close happens before the
// unlock, so another thread never sees a handle that is being closed.
int32_t _OV_ImcConfExchange(FlexMsg *msg) {
    OV_FATAL_ASSERT(OV_MutexLock(g_mutex));
    int32_t rc = 0;
    if (g_handle == OV_INVALID_PIPE_HANDLE) {
        rc = _OV_ImcConfConnect();
    }
    if (rc == 0) {
        rc = OV_ImcSendAll(g_handle, msg);
        if (rc == 0) {
            // The request buffer receives the reply.
            OV_FlexMsgReset(msg);
            rc = _OV_ImcRecvAllReply(g_handle, msg);
        }
    }
    if (rc < 0) {
        CloseConnection();
    }
    OV_FATAL_ASSERT(OV_MutexUnlock(g_mutex));
    return rc;
}

// Allocates a message with the header filled and, when given, the request
// payload behind it. Returns nullptr and the code in *rc on failure (logged).
FlexMsg *BuildRequest(uint8_t module, uint16_t func, const void *req, uint32_t reqLen,
                      bool alwaysAppend, int32_t *rc, const char *caller, int line) {
    FlexMsg *msg = OV_FlexMsgAlloc();
    if (msg == nullptr) {
        OV_Log("<Error>[%s:%d]Failed to alloc msg\n", caller, line);
        *rc = -OV_ENOMEM;
        return nullptr;
    }
    OV_ImcMsgFillHeader(msg, module, func);
    if (alwaysAppend || (req != nullptr && reqLen != 0)) {
        *rc = OV_ImcSafeSetRequestPayload(msg, req, reqLen);
        if (*rc < 0) {
            OV_Log("<Error>[%s:%d]Failed to call OV_ImcSafeSetRequestPayload %s\n", caller, line,
                   ErrText(*rc));
            OV_FlexMsgFree(msg);
            return nullptr;
        }
    }
    *rc = 0;
    return msg;
}

} // namespace

int32_t OV_ImcConfClientInit() {
    OV_ImcConfClientExit();
    g_mutex = OV_MutexCreate();
    OV_FATAL_ASSERT(g_mutex != nullptr);
    int32_t rc = OV_FlexMsgModuleStart();
    if (rc != 0) {
        OV_Log("<Error>[%s:%d]Failed to init msg\n", __func__, __LINE__);
    } else {
        g_msgStarted = true;
        rc = _OV_ImcConfConnect();
        if (rc != 0) {
            OV_Log("<Error>[%s:%d]Failed to connect to imc server ret=%d\n", __func__, __LINE__,
                   rc);
        }
    }
    if (rc < 0) {
        OV_ImcConfClientExit();
    }
    return rc;
}

void OV_ImcConfClientExit() {
    CloseConnection();
    // Each step clears what it released, so a second exit does nothing.
    if (g_msgStarted) {
        OV_FlexMsgModuleStop();
        g_msgStarted = false;
    }
    if (g_mutex != nullptr) {
        OV_Mutex *mutex = g_mutex;
        g_mutex = nullptr;
        OV_FATAL_ASSERT(OV_MutexClose(mutex));
    }
}

bool OV_ImcConfClientConnected() {
    return g_handle != OV_INVALID_PIPE_HANDLE;
}

void OV_ImcConfClientSetPipeName(const wchar_t *name) {
    if (name == nullptr) {
        g_pipeName = OV_IMC_CONF_PIPE_NAME;
        return;
    }
    size_t len = std::wcslen(name);
    if (len >= kPipeNameMax) {
        OV_Log("<Error>[%s:%d]Pipe name of %zu characters is too long\n", __func__, __LINE__, len);
        return;
    }
    std::wmemcpy(g_pipeNameBuf, name, len + 1);
    g_pipeName = g_pipeNameBuf;
}

int32_t OV_ImcConfigure(FlexMsg *msg) {
    int32_t rc = _OV_ImcConfExchange(msg);
    if (rc < 0) {
        return rc;
    }
    return OV_ImcMsgStatus(msg);
}

int32_t OV_ImcConfSet(uint8_t module, uint16_t func, const void *data, uint32_t len) {
    int32_t rc = 0;
    // The payload is appended even when it is empty.
    FlexMsg *msg = BuildRequest(module, func, data, len, true, &rc, __func__, __LINE__);
    if (msg == nullptr) {
        return rc;
    }
    rc = OV_ImcConfigure(msg);
    if (rc < 0) {
        OV_Log("<Error>[%s:%d]Failed to call OV_ImcConfigure %s\n", __func__, __LINE__,
               ErrText(rc));
    }
    OV_FlexMsgFree(msg);
    return rc;
}

int32_t OV_ImcConfGet(uint8_t module, uint16_t func, const void *req, uint32_t reqLen, void *reply,
                      uint32_t replySize) {
    int32_t rc = 0;
    FlexMsg *msg = BuildRequest(module, func, req, reqLen, false, &rc, __func__, __LINE__);
    if (msg == nullptr) {
        return rc;
    }
    rc = OV_ImcConfigure(msg);
    if (rc >= 0 && reply != nullptr && replySize != 0) {
        uint64_t payloadLen = OV_ImcMsgPayloadLen(msg);
        if (payloadLen == 0) {
            OV_Log("<Error>[%s:%d]The %d(%d) request can't get reply data\n", __func__, __LINE__,
                   module, func);
            rc = -OV_ENODATA;
        } else if (payloadLen > replySize) {
            std::memcpy(reply, OV_ImcMsgPayload(msg), replySize);
            OV_Log("<Error>[%s:%d]The %d(%d) reply data is truncated\n", __func__, __LINE__, module,
                   func);
            rc = -OV_ENOBUFS;
        } else {
            std::memcpy(reply, OV_ImcMsgPayload(msg), static_cast<size_t>(payloadLen));
        }
    }
    OV_FlexMsgFree(msg);
    return rc;
}

int32_t OV_ImcConfGetByFunc(uint8_t module, uint8_t func, const void *req, uint32_t reqLen,
                            ImcReplyFunc handler, void *ctx) {
    int32_t rc = 0;
    FlexMsg *msg = BuildRequest(module, func, req, reqLen, false, &rc, __func__, __LINE__);
    if (msg == nullptr) {
        return rc;
    }
    rc = OV_ImcConfigure(msg);
    if (rc < 0) {
        OV_Log("<Error>[%s:%d]Failed to call OV_ImcConfigure %s\n", __func__, __LINE__,
               ErrText(rc));
    } else if (handler != nullptr) {
        rc = handler(OV_ImcMsgPayload(msg), OV_ImcMsgPayloadLen(msg), ctx);
    }
    OV_FlexMsgFree(msg);
    return rc;
}

int32_t OV_ImcConfGetMultiByFunc(uint8_t module, uint8_t func, void *req, uint32_t reqLen,
                                 ReplyHandlerFunc handler, void *ctx) {
    int32_t rc = 0;
    // Set once: the handler alone decides when the series ends.
    uint32_t more = 0;
    do {
        FlexMsg *msg = BuildRequest(module, func, req, reqLen, false, &rc, __func__, __LINE__);
        if (msg == nullptr) {
            break;
        }
        rc = OV_ImcConfigure(msg);
        if (rc < 0) {
            OV_Log("<Error>[%s:%d]Failed to call OV_ImcConfigure %s\n", __func__, __LINE__,
                   ErrText(rc));
            OV_FlexMsgFree(msg);
            break;
        }
        if (handler != nullptr) {
            rc = handler(req, reqLen, OV_ImcMsgPayload(msg), OV_ImcMsgPayloadLen(msg), &more, ctx);
            if (rc < 0) {
                OV_Log("<Error>[%s:%d]Failed to callback ReplyHandlerFunc %s\n", __func__, __LINE__,
                       ErrText(rc));
                OV_FlexMsgFree(msg);
                break;
            }
        }
        OV_FlexMsgFree(msg);
    } while (more != 0);
    return rc;
}
