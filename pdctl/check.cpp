// pdctl check: every line of a file converted as pdtool would convert it,
// with nothing sent; refusals and warnings reported by line.
#include "pdctl/pdctl.h"
#include "pdctl/report.h"
#include "pdctl/warnings.h"

#include <cstdio>

namespace pdctl {

int Check(const Options &opt) {
    InputFile input(opt.target);
    if (input.Stream() == nullptr) {
        return kExitTrouble;
    }
    Runner runner(RequestMode::Capture);
    LineReader reader(ReadStdioStream, input.Stream());
    Progress progress;
    uint64_t checked = 0;
    uint64_t refused = 0;
    uint64_t warned = 0;
    Outcome o;
    Line line;
    int32_t rc = 0;
    while ((rc = reader.Next(&line)) == 1) {
        ++checked;
        bool unreadable = RefuseUnreadable(line, &o);
        if (!unreadable) {
            runner.Run(line.text, &o);
        }
        // A word no row starts is a warning: pdtool reports it and sends nothing.
        bool isRefused = unreadable || (o.row != nullptr && !o.Ok());
        std::vector<std::string> warnings;
        if (!unreadable) {
            warnings = LineWarnings(line.text, o);
        }
        refused += isRefused ? 1 : 0;
        warned += warnings.empty() ? 0 : 1;
        if (opt.json || isRefused || !warnings.empty()) {
            progress.Hide();
        }
        std::string word = ShownWord(line.text);
        if (opt.json) {
            json_object *obj = NewLineObject(input.Name(), line.number, word, o);
            const char *status = isRefused ? "refused" : warnings.empty() ? "ok" : "warning";
            json_object_object_add(obj, "status", json_object_new_string(status));
            AddResult(obj, isRefused ? o.result : 0);
            AddMessages(obj, isRefused ? o.messages : std::string_view());
            json_object *arr = json_object_new_array();
            for (const std::string &w : warnings) {
                json_object_array_add(arr, json_object_new_string(w.c_str()));
            }
            json_object_object_add(obj, "warnings", arr);
            PrintJsonLine(obj);
        } else {
            if (isRefused) {
                PrintResult(input.Name(), line.number, word, "refused %d (%s)", o.result,
                            CmdErrorText(o.result));
                PrintIndented(o.messages);
            }
            for (const std::string &w : warnings) {
                PrintResult(input.Name(), line.number, word, "warning: %s", w.c_str());
            }
        }
        progress.Update(checked, reader.PhysicalLines());
    }
    progress.Hide();
    if (rc < 0) {
        return ReadFailed(input, rc);
    }
    PrintSummary(opt.json, {{"checked", "checked", checked},
                            {"refused", "refused", refused},
                            {"warnings", "with warnings", warned}});
    if (refused > 0 || (opt.strict && warned > 0)) {
        return kExitFailed;
    }
    return kExitOk;
}

} // namespace pdctl
