// The get commands' printing: a shaper record to pretty JSON, and the shaper
// table printer with the largest reply that fits 10240 bytes, beside json-c's
// own floor for a record (build the tree, print it pretty).
#include "agentconf/json_conv.h"
#include "agentconf/shaper.h"
#include "base/mem.h"
#include "bench/bench_inputs.h"
#include "bench/bench_support.h"
#include "cli/cmd.h"
#include "cli/get_print.h"

#include <cstdio>
#include <cstring>
#include <iomanip>
#include <ostream>
#include <vector>

namespace {

constexpr size_t kTblHeader = 4;
// The largest table reply of at most 10240 bytes: 45 records, 10084 bytes.
constexpr size_t kFullReplyRecords = (10240 - kTblHeader) / sizeof(AgentShaperConf);

AgentShaperConf g_record; // the maximal shaper input, converted

bool BuildRecord() {
    for (const BenchInput &in : BenchConverterInputs()) {
        if (in.kind == "shaper" && in.name == "max") {
            std::memset(&g_record, 0, sizeof g_record);
            return OV_AgentShaperJsonStrToConf(&g_record, in.text.c_str()) == 0;
        }
    }
    return false;
}

std::vector<uint8_t> TableReply(size_t records) {
    std::vector<uint8_t> reply(kTblHeader + records * sizeof(AgentShaperConf), 0);
    reply[0] = static_cast<uint8_t>(records);
    for (size_t i = 0; i < records; ++i) {
        AgentShaperConf rec = g_record;
        rec.shaperId = static_cast<uint8_t>(i + 1);
        std::memcpy(reply.data() + kTblHeader + i * sizeof rec, &rec, sizeof rec);
    }
    return reply;
}

void BM_ShaperToJsonStr(benchmark::State &state) {
    for (auto _ : state) {
        char *text = OV_AgentShaperConfToJsonStr(&g_record);
        if (text == nullptr) {
            state.SkipWithError("no JSON text");
            break;
        }
        benchmark::DoNotOptimize(text);
        AgentMemFree(text);
    }
}

// What get_shaper_conf does once the reply is in: record to JSON text, parse,
// pretty print into the output buffer (the table printer with one record
// goes through the same steps).
void BM_PrintTable(benchmark::State &state, size_t records) {
    std::vector<uint8_t> reply = TableReply(records);
    static char out[CMD_OUT_BUF_LEN];
    for (auto _ : state) {
        std::memset(out, 0, sizeof out); // the dispatcher zeroes its buffer
        int32_t rc = CmdShaperTblPrint(reply.data(), reply.size(), out);
        if (rc != 0 || out[0] == '\0') {
            state.SkipWithError("the table printer failed");
            break;
        }
        benchmark::DoNotOptimize(out);
    }
    state.counters["reply_bytes"] = static_cast<double>(reply.size());
    state.counters["text_bytes"] = static_cast<double>(std::strlen(out));
}

// json-c's floor for one record: build the tree and print it pretty.
void BM_JsoncTreePretty(benchmark::State &state) {
    for (auto _ : state) {
        OV_JsonPtr obj(json_object_new_object());
        if (obj == nullptr || _OV_AgentShaperConfToJson(&g_record, obj.get()) != 0) {
            state.SkipWithError("no JSON tree");
            break;
        }
        const char *text = json_object_to_json_string_ext(obj.get(), JSON_C_TO_STRING_PRETTY);
        benchmark::DoNotOptimize(text);
    }
}

void PrintSummary(std::ostream &out, const std::map<std::string, BenchMedianReporter::Row> &rows) {
    auto us = [&rows](const char *name) {
        auto it = rows.find(name);
        return it == rows.end() ? 0.0 : it->second.realNs / 1e3;
    };
    double floor = us("print/jsonc_tree_pretty");
    out << "\nGet printing (medians, microseconds; 'logged' as in pdtool)\n" << std::fixed;
    out << std::setprecision(2);
    out << "  record to JSON text (OV_AgentShaperConfToJsonStr) " << std::setw(9)
        << us("print/shaper_to_json_str") << "\n";
    out << "  json-c floor: build tree + pretty print           " << std::setw(9) << floor << "\n";
    double one = us("print/shaper_pretty");
    out << "  one record to pretty JSON (get_shaper_conf path)  " << std::setw(9) << one << "   x"
        << (floor > 0 ? one / floor : 0) << " of the floor\n";
    double full = us("print/shaper_tbl_full");
    out << "  table printer, " << kFullReplyRecords << " records ("
        << kTblHeader + kFullReplyRecords * sizeof(AgentShaperConf) << "-byte reply)    "
        << std::setw(9) << full << "   " << full / kFullReplyRecords << " per record\n";
}

} // namespace

int main(int argc, char **argv) {
    std::unique_ptr<std::ostream> report = BenchTakeReportStream();
    if (report == nullptr) {
        std::fprintf(stderr, "cannot set up the report stream\n");
        return 1;
    }
    OV_LogSetFlushEachLine(false); // as pdtool runs
    // As in pdtool: the AGENT module holds the JSON texts, and the
    // converters' log module writes its lines (to /dev/null here).
    if (AgentMemModuleRegister() < 0 || OV_AgentConfLogRegister() != 0 || !BuildRecord()) {
        std::fprintf(stderr, "cannot set up the shaper record\n");
        return 1;
    }
    benchmark::RegisterBenchmark("print/shaper_to_json_str", BM_ShaperToJsonStr)
        ->Unit(benchmark::kMicrosecond);
    benchmark::RegisterBenchmark("print/jsonc_tree_pretty", BM_JsoncTreePretty)
        ->Unit(benchmark::kMicrosecond);
    benchmark::RegisterBenchmark("print/shaper_pretty", BM_PrintTable, size_t{1})
        ->Unit(benchmark::kMicrosecond);
    benchmark::RegisterBenchmark("print/shaper_tbl_full", BM_PrintTable, kFullReplyRecords)
        ->Unit(benchmark::kMicrosecond);
    int rc = BenchMain(argc, argv, *report, PrintSummary);
    OV_AgentConfLogUnregister();
    AgentMemModuleUnregister();
    return rc;
}
