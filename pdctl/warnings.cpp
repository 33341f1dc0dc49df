// The warnings check gives for lines that convert.
#include "pdctl/warnings.h"

#include <cstring>

namespace pdctl {

namespace {

// The longest row name the word starts with: the row a reader of the word
// would expect to run it.
const CmdEntry *LongestRow(std::string_view word) {
    const CmdEntry *best = nullptr;
    for (const CmdEntry &entry : g_cmdTable) {
        size_t len = std::strlen(entry.name);
        if (word.substr(0, len) == entry.name &&
            (best == nullptr || len > std::strlen(best->name))) {
            best = &entry;
        }
    }
    return best;
}

} // namespace

std::vector<std::string> LineWarnings(std::string_view word, const Outcome &o) {
    std::vector<std::string> out;
    if (o.row == nullptr) {
        out.emplace_back("unknown command word: pdtool says \"invalid command\" and sends nothing");
        return out;
    }
    if (WordName(word) != o.row->name) {
        const CmdEntry *longest = LongestRow(word);
        std::string text = std::string("runs as ") + o.row->name;
        text += longest != o.row
                    ? std::string(", which comes before ") + longest->name + " in the command table"
                    : ", the command name the word starts with";
        out.push_back(std::move(text));
    }
    if (!o.Ok()) {
        return out;
    }
    if (!o.sent) {
        out.emplace_back(SpecOfRow(o.row).kind == RecordKind::LinkIp
                             ? "nothing is sent: only a link-IP record of Type 1 or 2 is"
                             : "nothing is sent");
    }
    if (o.scanFormat != nullptr && static_cast<size_t>(o.scanStored) < o.scanSlots) {
        out.push_back("only " + std::to_string(o.scanStored) + " of " +
                      std::to_string(o.scanSlots) + " values read as \"" + o.scanFormat +
                      "\": the rest are sent as 0");
    }
    std::string_view messages = o.converterWarnings;
    while (!messages.empty()) {
        size_t nl = messages.find('\n');
        out.emplace_back(messages.substr(0, nl));
        messages.remove_prefix(nl == std::string_view::npos ? messages.size() : nl + 1);
    }
    return out;
}

} // namespace pdctl
