// pdctl apply: every command of a file to the agent over one connection, in
// file order, one result per command.
#include "base/errors.h"
#include "base/socket.h"
#include "imc/conf_client.h"
#include "pdctl/pdctl.h"
#include "pdctl/report.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace pdctl {

namespace {

// The socket layer and the configuration client for the run, set up as
// pdtool sets them up.
class AgentSession {
  public:
    ~AgentSession() {
        if (clientUp_) {
            OV_ImcConfClientExit();
        }
        if (socketsUp_) {
            OV_SocketAPIExit();
        }
    }
    int32_t Start() {
        int32_t rc = OV_SocketAPIInit();
        if (rc != 0) {
            return rc;
        }
        socketsUp_ = true;
        CmdApplyPipeNameOverride("pdctl");
        rc = OV_ImcConfClientInit();
        clientUp_ = rc >= 0;
        return rc;
    }

  private:
    bool socketsUp_ = false;
    bool clientUp_ = false;
};

// "Key: value" lines (the SA cluster state) as an object; numbers stay numbers.
json_object *KeyValueLines(std::string_view text) {
    json_object *obj = json_object_new_object();
    while (!text.empty()) {
        size_t nl = text.find('\n');
        std::string_view one = text.substr(0, nl);
        text.remove_prefix(nl == std::string_view::npos ? text.size() : nl + 1);
        size_t colon = one.find(": ");
        if (colon == std::string_view::npos) {
            continue;
        }
        std::string key(one.substr(0, colon));
        std::string value(one.substr(colon + 2));
        bool number = !value.empty() && value.size() < 11 &&
                      value.find_first_not_of("0123456789") == std::string::npos;
        json_object_object_add(obj, key.c_str(),
                               number
                                   ? json_object_new_int64(std::strtoll(value.c_str(), nullptr, 10))
                                   : json_object_new_string(value.c_str()));
    }
    return obj;
}

// The JSON texts one after another (the shaper table), as an array.
json_object *JsonTexts(const std::string &text) {
    json_object *arr = json_object_new_array();
    json_tokener *tok = json_tokener_new();
    const char *p = text.c_str();
    const char *end = p + text.size();
    for (;;) {
        p += std::strspn(p, " \t\r\n");
        if (p >= end) {
            break;
        }
        json_object *one = json_tokener_parse_ex(tok, p, static_cast<int>(end - p));
        if (one == nullptr) {
            break;
        }
        json_object_array_add(arr, one);
        p += json_tokener_get_parse_end(tok);
        json_tokener_reset(tok);
    }
    json_tokener_free(tok);
    return arr;
}

// A get's reply text, read back into the JSON it shows; nullptr for a set.
json_object *ReplyJson(const Outcome &o) {
    switch (SpecOfRow(o.row).op) {
    case CmdOp::GetOne:
        return json_tokener_parse(o.reply.c_str());
    case CmdOp::GetTable:
        return JsonTexts(o.reply);
    case CmdOp::GetSaCluster:
        return KeyValueLines(o.reply);
    case CmdOp::Set:
    case CmdOp::Delete:
        break;
    }
    return nullptr;
}

struct Counts {
    uint64_t applied = 0;
    uint64_t failed = 0;
    uint64_t notRun = 0;
};

void ReportNotRun(const Options &opt, const char *file, const Line &line) {
    std::string word = ShownWord(line.text);
    if (opt.json) {
        json_object *obj = json_object_new_object();
        json_object_object_add(obj, "file", json_object_new_string(file));
        json_object_object_add(obj, "line",
                               json_object_new_int64(static_cast<int64_t>(line.number)));
        json_object_object_add(obj, "word", json_object_new_string(word.c_str()));
        json_object_object_add(obj, "status", json_object_new_string("not run"));
        PrintJsonLine(obj);
    } else {
        PrintResult(file, line.number, word, "not run");
    }
}

void ReportRun(const Options &opt, const char *file, const Line &line, const Outcome &o, bool ok) {
    std::string word = ShownWord(line.text);
    if (opt.json) {
        json_object *obj = NewLineObject(file, line.number, word, o);
        json_object_object_add(obj, "status", json_object_new_string(ok ? "ok" : "failed"));
        json_object_object_add(obj, "sent", json_object_new_boolean(o.sent));
        AddResult(obj, o.result);
        AddMessages(obj, o.messages);
        if (ok) {
            if (json_object *reply = ReplyJson(o); reply != nullptr) {
                json_object_object_add(obj, "reply", reply);
            }
        }
        PrintJsonLine(obj);
        return;
    }
    if (!ok) {
        PrintResult(file, line.number, word, "failed %d (%s)", o.result, CmdErrorText(o.result));
    } else if (!o.sent) {
        PrintResult(file, line.number, word, "ok, nothing sent");
    } else {
        PrintResult(file, line.number, word, "ok");
    }
    PrintIndented(o.messages);
    if (ok && !o.reply.empty()) {
        std::fputs(o.reply.c_str(), stdout);
        if (o.reply.back() != '\n') {
            std::putchar('\n');
        }
    }
}

} // namespace

int Apply(const Options &opt) {
    InputFile input(opt.target);
    if (input.Stream() == nullptr) {
        return kExitTrouble;
    }
    AgentSession session;
    if (int32_t rc = session.Start(); rc < 0) {
        std::fprintf(stderr, "pdctl: cannot reach the agent on the configuration pipe: %d (%s)\n",
                     rc, CmdErrorText(rc));
        return kExitTrouble;
    }

    Runner runner(RequestMode::Send);
    LineReader reader(ReadStdioStream, input.Stream());
    Progress progress;
    Counts counts;
    Outcome o;
    Line line;
    bool stopped = false;
    int32_t rc = 0;
    while ((rc = reader.Next(&line)) == 1) {
        progress.Hide();
        if (stopped) {
            ReportNotRun(opt, input.Name(), line);
            ++counts.notRun;
            continue;
        }
        if (!RefuseUnreadable(line, &o)) {
            runner.Run(line.text, &o);
        }
        bool ok = o.Ok();
        ReportRun(opt, input.Name(), line, o, ok);
        if (ok) {
            ++counts.applied;
        } else {
            ++counts.failed;
            // A failed exchange closes the connection. Going on makes sense
            // only when the agent takes a new one (it closed the old one, or
            // was restarted); when it is gone, the rest is not run.
            bool channelLost = o.sent && !OV_ImcConfClientConnected();
            if (channelLost && opt.keepGoing) {
                channelLost = OV_ImcConfClientInit() < 0;
            }
            stopped = !opt.keepGoing || channelLost;
        }
        progress.Update(counts.applied + counts.failed, reader.PhysicalLines());
    }
    progress.Hide();
    if (rc < 0) {
        return ReadFailed(input, rc);
    }
    PrintSummary(opt.json, {{"applied", "applied", counts.applied},
                            {"failed", "failed", counts.failed},
                            {"not_run", "not run", counts.notRun}});
    return counts.failed == 0 && counts.notRun == 0 ? kExitOk : kExitFailed;
}

} // namespace pdctl
