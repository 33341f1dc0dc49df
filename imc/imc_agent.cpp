// The agent's side of an IMC exchange (used by the agent simulator and tests).
#include "imc/imc_agent.h"

#include "base/errors.h"
#include "base/log.h"
#include "base/platform.h"
#include "imc/pipe.h"

#include <cstring>

static_assert(sizeof(size_t) == sizeof(uint64_t), "payload lengths are read in one go");

namespace {

// A failed read after the first byte of a request: the stream is out of step.
int32_t MidRequest(int32_t rc) {
    return rc == -OV_ETIMEDOUT ? -OV_EIO : rc;
}

} // namespace

bool OV_ImcAgentCheckHeader(const FlexMsg *msg) {
    return msg->length >= IMC_HEADER_LEN && msg->data[0] < IMC_MODULE_MAX;
}

int32_t OV_ImcAgentRecvRequest(OV_PipeConn *conn, FlexMsg *msg, uint32_t idleMs) {
    OV_FlexMsgReset(msg);
    // The first byte alone, so that an idle wait consumes nothing.
    int32_t rc = OV_PipeConnRead(conn, msg->data, 1, idleMs, nullptr);
    if (rc != 0) {
        return rc;
    }
    rc = OV_PipeConnRead(conn, msg->data + 1, IMC_HEADER_LEN - 1, OV_IMC_WAIT_MS, nullptr);
    if (rc != 0) {
        return MidRequest(rc);
    }
    msg->length = IMC_HEADER_LEN;
    if (!OV_ImcAgentCheckHeader(msg)) {
        OV_Log("<Error>[%s:%d]Check request header failed, the configurations is invaild\n",
               __func__, __LINE__);
        OV_FlexMsgReset(msg);
        return -OV_EINVAL;
    }
    uint64_t payloadLen = OV_ImcMsgPayloadLen(msg);
    if (payloadLen == 0) {
        return 0;
    }
    if (!OV_FlexMsgDataMaybePull(msg, payloadLen)) {
        OV_Log("<Error>[%s:%d]Failed to call OV_FlexMsgDataMaybePull\n", __func__, __LINE__);
        OV_FlexMsgReset(msg);
        return -OV_ENOMEM;
    }
    rc = OV_PipeConnRead(conn, msg->data + msg->length, static_cast<size_t>(payloadLen),
                         OV_IMC_WAIT_MS, nullptr);
    if (rc != 0) {
        OV_FlexMsgReset(msg);
        return MidRequest(rc);
    }
    msg->length += payloadLen;
    return 0;
}

void OV_ImcAgentSetStatusReply(FlexMsg *msg, int32_t status) {
    // The agent never reports success with a positive number.
    OV_FATAL_ASSERT(status <= 0);
    ImcMsgHeader header{};
    std::memcpy(&header, &status, sizeof status);
    std::memcpy(msg->data, &header, sizeof header);
    msg->length = IMC_HEADER_LEN;
}

int32_t OV_ImcAgentSetDataReply(FlexMsg *msg, int32_t status, const void *data, uint64_t n) {
    OV_ImcAgentSetStatusReply(msg, status);
    return OV_ImcSafeSetReplyPayload(msg, data, n);
}

int32_t OV_ImcAgentSendReply(OV_PipeConn *conn, FlexMsg *msg, uint32_t timeoutMs) {
    return OV_PipeConnWrite(conn, msg->data, static_cast<size_t>(msg->length), timeoutMs);
}
