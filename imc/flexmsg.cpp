// The IMC header and payload of a FlexMsg.
#include "imc/flexmsg.h"

#include <cstring>

void OV_ImcMsgFillHeader(FlexMsg *msg, uint8_t moduleId, uint16_t functionId) {
    ImcMsgHeader header{};
    header.moduleId = moduleId;
    header.functionId = functionId;
    header.payloadLen = 0;
    std::memcpy(msg->data, &header, sizeof header);
    msg->length = IMC_HEADER_LEN;
}

int32_t OV_ImcSafeSetRequestPayload(FlexMsg *msg, const void *bytes, uint64_t n) {
    int32_t rc = OV_FlexMsgAppend(msg, bytes, n);
    if (rc == 0) {
        uint64_t len = OV_ImcMsgPayloadLen(msg) + n;
        std::memcpy(msg->data + offsetof(ImcMsgHeader, payloadLen), &len, sizeof len);
    }
    return rc;
}

int32_t OV_ImcSafeSetReplyPayload(FlexMsg *msg, const void *bytes, uint64_t n) {
    return OV_ImcSafeSetRequestPayload(msg, bytes, n);
}

ImcMsgHeader *OV_ImcMsgHeader(FlexMsg *msg) {
    return reinterpret_cast<ImcMsgHeader *>(msg->data);
}

uint8_t *OV_ImcMsgPayload(FlexMsg *msg) {
    return msg->data + IMC_HEADER_LEN;
}

uint64_t OV_ImcMsgPayloadLen(const FlexMsg *msg) {
    uint64_t len;
    std::memcpy(&len, msg->data + offsetof(ImcMsgHeader, payloadLen), sizeof len);
    return len;
}

int32_t OV_ImcMsgStatus(const FlexMsg *msg) {
    int32_t status;
    std::memcpy(&status, msg->data, sizeof status);
    return status;
}
