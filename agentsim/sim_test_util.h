// Helpers of agentsim's tests: commands by word, shaper records, raw requests
// and a raw client that speaks the IMC channel byte by byte, so a test sees
// exactly what the simulator sends.
#pragma once

#include "agentconf/protocol.h"
#include "agentsim/sim_handlers.h"
#include "imc/flexmsg.h"
#include "imc/pipe.h"
#include "tests/support/record_bytes.h"
#include "tests/support/test_server.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace simtest {

using Bytes = std::vector<uint8_t>;

using ovtest::Put;

/// The command named word (a test's typo fails every check that uses it).
inline const CommandSpec &Cmd(std::string_view word) {
    const CommandSpec *c = OV_CommandForWord(word);
    EXPECT_NE(c, nullptr) << "no command " << word;
    return c != nullptr ? *c : kCommands[0];
}

/// The simulator's answer to the command named word.
inline SimResult Send(SimContext &ctx, std::string_view word, const Bytes &payload) {
    return SimDispatch(ctx, Cmd(word).Module(), Cmd(word).function, payload);
}

/// A shaper record: its id and flags (byte 1 holds the persistent flag); bytes
/// far into it are set, so a short copy would show.
inline Bytes Shaper(uint8_t id, uint8_t flags = 0) {
    return ovtest::RecordBytes<224>()
        .U8(0, id)
        .U8(1, flags)
        .U32(4, 1000u + id)
        .U8(200, 0xA5)
        .U8(223, 0xEE)
        .bytes;
}

/// The bytes of a request: header (module, function, payload length) and payload.
inline Bytes Request(uint8_t module, uint16_t function, const Bytes &payload) {
    return ovtest::Concat(ovtest::RequestHeader(module, function, payload.size()), payload);
}

/// A client end of the channel on which a test writes raw bytes and reads
/// the reply, or everything up to the close.
class RawClient {
  public:
    explicit RawClient(const std::wstring &pipeName) {
        connectResult_ = OV_ImcConnect(pipeName.c_str(), 0, &handle_);
        msg_.reset(OV_FlexMsgAlloc());
    }
    ~RawClient() { OV_ImcClose(handle_); }
    RawClient(const RawClient &) = delete;
    RawClient &operator=(const RawClient &) = delete;

    int32_t ConnectResult() const { return connectResult_; }

    int32_t Send(const Bytes &bytes) {
        if (connectResult_ != 0) {
            return connectResult_;
        }
        OV_FlexMsgReset(msg_.get());
        int32_t rc = OV_FlexMsgAppend(msg_.get(), bytes.data(), bytes.size());
        return rc != 0 ? rc : OV_ImcSendAll(handle_, msg_.get());
    }

    /// One request, one reply. Returns the status, or the failure of the
    /// exchange.
    int32_t Exchange(uint8_t module, uint16_t function, const Bytes &payload) {
        int32_t rc = Send(Request(module, function, payload));
        OV_FlexMsgReset(msg_.get());
        if (rc != 0 || (rc = OV_ImcRecvAll(handle_, msg_.get(), IMC_HEADER_LEN, 1)) != 0) {
            return rc;
        }
        uint64_t n = OV_ImcMsgPayloadLen(msg_.get());
        if (n > 0 && (rc = OV_ImcRecvAll(handle_, msg_.get(), n, 1)) != 0) {
            return rc;
        }
        return OV_ImcMsgStatus(msg_.get());
    }

    /// Every byte that arrives until the other end closes (or a read fails).
    Bytes ReadUntilClosed() {
        Bytes out;
        for (;;) {
            OV_FlexMsgReset(msg_.get());
            if (OV_ImcRecvAll(handle_, msg_.get(), 1, 1) != 0) {
                return out;
            }
            out.push_back(msg_->data[0]);
        }
    }

  private:
    struct MsgFree {
        void operator()(FlexMsg *m) const { OV_FlexMsgFree(m); }
    };
    OV_PipeHandle handle_ = OV_INVALID_PIPE_HANDLE;
    int32_t connectResult_ = 0;
    std::unique_ptr<FlexMsg, MsgFree> msg_;
};

} // namespace simtest
