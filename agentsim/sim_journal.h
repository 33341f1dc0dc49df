// The request journal: one JSON object per line, flushed line by line, so an
// operator (or a test) sees exactly what each request carried and what the
// simulator answered.
#pragma once

#include "base/platform.h"

#include <json-c/json.h>

#include <cstdint>
#include <cstdio>
#include <mutex>
#include <span>
#include <string>

struct SimJournalEntry {
    OV_LocalTime time{};
    uint8_t module = 0;
    uint16_t function = 0;
    const char *command = nullptr; ///< null in the line when nullptr
    bool answered = true;          ///< false: "status" is null and "error" says why
    int32_t status = 0;
    const char *error = nullptr;      ///< for requests that were not answered
    uint64_t length = 0;              ///< the payload length the header announced
    std::span<const uint8_t> payload; ///< shown as hex when answered
    json_object *record = nullptr;    ///< borrowed; null in the line when nullptr
    const char *fault = nullptr;      ///< the fault applied to the reply, if any
};

/// The line for an entry, ending in "\n": {"time", "module", "function",
/// "command", "status", "length", "payload", "record"} and "fault" when one
/// applied; an unanswered request has "status": null and "error" in place of
/// "payload" and "record".
std::string SimJournalLine(const SimJournalEntry &entry);

/// Writes lines to a stream; one mutex keeps lines of concurrent clients whole.
class SimJournal {
  public:
    /// out may be nullptr (no journal); it stays the caller's.
    explicit SimJournal(FILE *out) : out_(out) {}
    bool Enabled() const { return out_ != nullptr; }
    void Write(const SimJournalEntry &entry);

  private:
    FILE *out_;
    std::mutex lock_;
};
