// Each converter against json-c's bare parse of the same text, measured in
// pairs: every iteration times one conversion and one json_tokener_parse +
// json_object_put, in alternating order, so both see the same machine.
#include "agentconf/acsname.h"
#include "agentconf/conn.h"
#include "agentconf/globalarg.h"
#include "agentconf/json_conv.h"
#include "agentconf/link.h"
#include "agentconf/ratelimit.h"
#include "agentconf/rule.h"
#include "agentconf/shaper.h"
#include "base/mem.h"
#include "bench/bench_inputs.h"
#include "bench/bench_support.h"

#include <cstdio>
#include <cstring>
#include <iomanip>
#include <ostream>
#include <vector>

namespace {

// The converter of one record kind, filling a record the caller zeroed; the
// acsname converter's entry arrays are released as the handler does.
struct Converter {
    const char *kind;
    size_t size;
    int32_t (*convert)(void *record, const char *text);
};

template <typename Conf, int32_t (*Fn)(Conf *, const char *)>
int32_t Call(void *record, const char *text) {
    return Fn(static_cast<Conf *>(record), text);
}

int32_t CallAcsName(void *record, const char *text) {
    AgentAcsNameEntries entries{};
    int32_t rc =
        OV_AgentAcsNameJsonStrToConf(static_cast<AgentAcsNameConf *>(record), &entries, text);
    OV_AgentAcsNameEntriesRelease(&entries);
    return rc;
}

constexpr Converter kConverters[] = {
    {"ratelimit", sizeof(AgentRatelimitConf),
     Call<AgentRatelimitConf, OV_AgentRatelimitJsonStrToConf>},
    {"rule", sizeof(AgentRuleConf), Call<AgentRuleConf, OV_AgentRuleJsonStrToConf>},
    {"conn", sizeof(AgentConnConf), Call<AgentConnConf, OV_AgentConnJsonStrToConf>},
    {"linkip", sizeof(AgentLinkIpConf), Call<AgentLinkIpConf, OV_AgentLinkIpJsonStrToConf>},
    {"link", sizeof(AgentLinkConf), Call<AgentLinkConf, OV_AgentLinkJsonStrToConf>},
    {"globalarg", sizeof(AgentGlobalArgConf),
     Call<AgentGlobalArgConf, OV_AgentDpGlobalArgJsonStrToConf>},
    {"shaper", sizeof(AgentShaperConf), Call<AgentShaperConf, OV_AgentShaperJsonStrToConf>},
    {"acsname", sizeof(AgentAcsNameConf), CallAcsName},
};

const Converter *FindConverter(const std::string &kind) {
    for (const Converter &c : kConverters) {
        if (kind == c.kind) {
            return &c;
        }
    }
    return nullptr;
}

int64_t TimeConvert(const Converter &conv, std::vector<uint64_t> &record, const char *text,
                    int32_t *rc) {
    // The handler zero-fills the record; that is not the converter's cost.
    std::memset(record.data(), 0, conv.size);
    int64_t t0 = BenchNowNs();
    *rc = conv.convert(record.data(), text);
    int64_t t1 = BenchNowNs();
    benchmark::DoNotOptimize(record.data());
    return t1 - t0;
}

int64_t TimeParse(const char *text) {
    int64_t t0 = BenchNowNs();
    json_object *obj = json_tokener_parse(text);
    benchmark::DoNotOptimize(obj);
    json_object_put(obj);
    int64_t t1 = BenchNowNs();
    return t1 - t0;
}

// logged: the converters' log module registered as pdtool registers it (its
// lines go to /dev/null); otherwise it is not registered and the log calls
// return early.
void BM_Convert(benchmark::State &state, const BenchInput *in, const Converter *conv, bool logged) {
    if (logged && OV_AgentConfLogRegister() != 0) {
        state.SkipWithError("cannot register the converters' log module");
        return;
    }
    std::vector<uint64_t> record((conv->size + 7) / 8);
    const char *text = in->text.c_str();
    int32_t rc = 0;
    TimeConvert(*conv, record, text, &rc);
    if (rc != 0) {
        char why[128];
        std::snprintf(why, sizeof why, "the input does not convert (%d)", rc);
        state.SkipWithError(why);
    } else {
        int64_t convertNs = 0;
        int64_t parseNs = 0;
        bool parseFirst = false;
        for (auto _ : state) {
            int64_t c = 0;
            if (parseFirst) {
                parseNs += TimeParse(text);
                c = TimeConvert(*conv, record, text, &rc);
            } else {
                c = TimeConvert(*conv, record, text, &rc);
                parseNs += TimeParse(text);
            }
            parseFirst = !parseFirst;
            convertNs += c;
            state.SetIterationTime(static_cast<double>(c) * 1e-9);
        }
        double n = static_cast<double>(state.iterations());
        state.counters["bytes"] = static_cast<double>(in->text.size());
        state.counters["parse_us"] = static_cast<double>(parseNs) / n / 1e3;
        state.counters["convert_us"] = static_cast<double>(convertNs) / n / 1e3;
        state.counters["ratio"] = parseNs > 0 ? static_cast<double>(convertNs) / parseNs : 0;
    }
    if (logged) {
        OV_AgentConfLogUnregister();
    }
}

constexpr double kTargetRatio = 1.25;

void PrintSummary(std::ostream &out, const std::map<std::string, BenchMedianReporter::Row> &rows) {
    out << "\nConverter cost / json-c parse of the same text (medians; 'logged' as in pdtool, "
           "'quiet' without the log module)\n";
    out << std::left << std::setw(10) << "kind" << std::setw(7) << "input" << std::right
        << std::setw(8) << "bytes" << std::setw(11) << "parse_us" << std::setw(11) << "logged_us"
        << std::setw(8) << "ratio" << std::setw(11) << "quiet_us" << std::setw(8) << "ratio"
        << "  target<=" << kTargetRatio << "\n";
    out << std::fixed;
    for (const BenchInput &in : BenchConverterInputs()) {
        std::string id = in.kind + "/" + in.name;
        auto logged = rows.find("convert/" + id);
        auto quiet = rows.find("convert_quiet/" + id);
        if (logged == rows.end() || quiet == rows.end()) {
            continue;
        }
        const auto &l = logged->second.counters;
        const auto &q = quiet->second.counters;
        double ratio = l.at("ratio");
        out << std::left << std::setw(10) << in.kind << std::setw(7) << in.name << std::right
            << std::setw(8) << std::setprecision(0) << l.at("bytes") << std::setprecision(2)
            << std::setw(11) << l.at("parse_us") << std::setw(11) << l.at("convert_us")
            << std::setw(8) << ratio << std::setw(11) << q.at("convert_us") << std::setw(8)
            << q.at("ratio") << "  " << (ratio <= kTargetRatio ? "met" : "MISSED") << "\n";
    }
}

} // namespace

int main(int argc, char **argv) {
    std::unique_ptr<std::ostream> report = BenchTakeReportStream();
    if (report == nullptr) {
        std::fprintf(stderr, "cannot set up the report stream\n");
        return 1;
    }
    OV_LogSetFlushEachLine(false); // as pdtool runs
    // The acsname converter takes its entry arrays from the AGENT module.
    if (AgentMemModuleRegister() < 0) {
        std::fprintf(stderr, "cannot register the AGENT memory module\n");
        return 1;
    }
    for (const BenchInput &in : BenchConverterInputs()) {
        const Converter *conv = FindConverter(in.kind);
        if (conv == nullptr) {
            continue;
        }
        for (bool logged : {true, false}) {
            std::string name = (logged ? "convert/" : "convert_quiet/") + in.kind + "/" + in.name;
            benchmark::RegisterBenchmark(name.c_str(), BM_Convert, &in, conv, logged)
                ->UseManualTime()
                ->Unit(benchmark::kMicrosecond);
        }
    }
    int rc = BenchMain(argc, argv, *report, PrintSummary);
    AgentMemModuleUnregister();
    return rc;
}
