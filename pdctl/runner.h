// One configuration line run exactly as pdtool runs that command word (the
// same table row, handler, converter and record), with what pdtool would
// have printed kept for the report, and the request either sent to the agent
// or only taken (check, explain).
#pragma once

#include "agentconf/protocol.h"
#include "cli/cmd.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace pdctl {

enum class RequestMode {
    Send,    ///< through the configuration client, which must be started
    Capture, ///< taken here; nothing is sent and no agent is needed
};

/// What one line did.
struct Outcome {
    const CmdEntry *row = nullptr; ///< nullptr: no row starts the word
    /// The handler's result; -22 for a word no row starts. A taken get
    /// counts as 0: there is no reply to fail.
    int32_t result = 0;
    bool sent = false; ///< a request went out (Capture: was taken)
    uint8_t module = 0;
    uint16_t function = 0;
    std::vector<uint8_t> record; ///< Capture: the request's bytes
    /// Capture: the requests that followed the first (an access name's
    /// entries), in order. module, function and record above are the first.
    struct Request {
        uint8_t module = 0;
        uint16_t function = 0;
        std::vector<uint8_t> bytes;
    };
    std::vector<Request> followers;
    /// Lines pdtool would have printed besides its outcome line (the
    /// handlers' refusals, "invalid command ...") and the converters' error
    /// and warning lines without their time stamps, in order, each ending in
    /// "\n".
    std::string messages;
    /// The converters' warning lines among them: the record was made, but
    /// maybe not as written (an array whose length differs from its count).
    std::string converterWarnings;
    std::string reply; ///< Send: the text a get leaves, as pdtool prints it
    /// The last key=value scan of the line (nullptr when none ran): its
    /// format, the values it stored and those it had room for.
    const char *scanFormat = nullptr;
    int scanStored = 0;
    size_t scanSlots = 0;

    bool Ok() const { return row != nullptr && result >= 0; }
};

/// Runs lines with the front-end seams of cli set to itself: standard
/// output, the request path and the key=value scans all report here. One
/// runner at a time; the seams are put back when it goes.
class Runner {
  public:
    explicit Runner(RequestMode mode);
    ~Runner();
    Runner(const Runner &) = delete;
    Runner &operator=(const Runner &) = delete;

    /// Runs one command word (any bytes but NUL) into *out.
    void Run(std::string_view word, Outcome *out);

  private:
    std::string word_;
    char reply_[CMD_OUT_BUF_LEN];
};

/// The output function of the converters' log module while pdctl runs:
/// errors and warnings go to the running line's messages (as pdtool prints
/// them, less the time stamp); with verbose, every line also goes on to the
/// log (and so to standard error).
void ConverterLogOutput(uint32_t level, const char *fmt, ...) OV_PRINTF_FMT(2, 3);
void SetConverterLogVerbose(bool verbose);

/// The protocol's description of a row of pdtool's table (the table is
/// built from it, row for row).
const CommandSpec &SpecOfRow(const CmdEntry *row);

/// The command word as written: the text before the first "/".
std::string_view WordName(std::string_view word);

} // namespace pdctl
