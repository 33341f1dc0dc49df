// The request journal.
#include "agentsim/sim_journal.h"

#include "agentconf/json_out.h"

#include <cstdio>

namespace {

// Length of the well-formed UTF-8 sequence at text[i], or 0.
size_t Utf8SequenceAt(const std::string &text, size_t i) {
    auto byte = [&](size_t k) { return static_cast<uint8_t>(text[k]); };
    uint8_t b = byte(i);
    if (b < 0x80) {
        return 1;
    }
    size_t len = 0;
    uint8_t lo = 0x80;
    uint8_t hi = 0xBF;
    if (b >= 0xC2 && b <= 0xDF) {
        len = 2;
    } else if (b >= 0xE0 && b <= 0xEF) {
        len = 3;
        lo = b == 0xE0 ? 0xA0 : 0x80;
        hi = b == 0xED ? 0x9F : 0xBF;
    } else if (b >= 0xF0 && b <= 0xF4) {
        len = 4;
        lo = b == 0xF0 ? 0x90 : 0x80;
        hi = b == 0xF4 ? 0x8F : 0xBF;
    } else {
        return 0;
    }
    if (i + len > text.size() || byte(i + 1) < lo || byte(i + 1) > hi) {
        return 0;
    }
    for (size_t k = 2; k < len; ++k) {
        if (byte(i + k) < 0x80 || byte(i + k) > 0xBF) {
            return 0;
        }
    }
    return len;
}

// Decoded texts are the record's bytes as they came, which need not be
// UTF-8; a journal line must be. Such bytes (only ever inside strings) are
// shown as the characters U+0080..U+00FF; the payload hex stays exact.
std::string AsUtf8(const std::string &text) {
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size();) {
        size_t n = Utf8SequenceAt(text, i);
        if (n > 0) {
            out.append(text, i, n);
            i += n;
            continue;
        }
        char escaped[8];
        std::snprintf(escaped, sizeof escaped, "\\u%04x", static_cast<uint8_t>(text[i]));
        out += escaped;
        ++i;
    }
    return out;
}

} // namespace

std::string SimJournalLine(const SimJournalEntry &e) {
    char time[32];
    std::snprintf(time, sizeof time, "%04u-%02u-%02uT%02u:%02u:%02u.%03u", e.time.year % 10000u,
                  e.time.month % 100u, e.time.day % 100u, e.time.hour % 100u, e.time.minute % 100u,
                  e.time.second % 100u, e.time.milliseconds % 1000u);
    json_object *line = json_object_new_object();
    ovrec::AddString(line, "time", time);
    ovrec::AddInt(line, "module", e.module);
    ovrec::AddInt(line, "function", e.function);
    json_object_object_add(line, "command",
                           e.command == nullptr ? nullptr : json_object_new_string(e.command));
    if (e.answered) {
        ovrec::AddInt(line, "status", e.status);
        ovrec::AddInt(line, "length", static_cast<int64_t>(e.length));
        ovrec::AddString(line, "payload", ovrec::HexText(e.payload.data(), e.payload.size()));
        json_object_object_add(line, "record",
                               e.record == nullptr ? nullptr : json_object_get(e.record));
    } else {
        json_object_object_add(line, "status", nullptr);
        ovrec::AddString(line, "error", e.error == nullptr ? "" : e.error);
        // The announced length can pass 2^63; shown as the unsigned number.
        json_object_object_add(line, "length", json_object_new_uint64(e.length));
    }
    if (e.fault != nullptr) {
        ovrec::AddString(line, "fault", e.fault);
    }
    std::string text = AsUtf8(json_object_to_json_string_ext(
        line, JSON_C_TO_STRING_PLAIN | JSON_C_TO_STRING_NOSLASHESCAPE));
    json_object_put(line);
    text += '\n';
    return text;
}

void SimJournal::Write(const SimJournalEntry &entry) {
    if (out_ == nullptr) {
        return;
    }
    std::string text = SimJournalLine(entry);
    std::lock_guard<std::mutex> guard(lock_);
    std::fwrite(text.data(), 1, text.size(), out_);
    std::fflush(out_);
}
