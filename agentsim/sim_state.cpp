// The state file of persistent records.
#include "agentsim/sim_state.h"

#include "agentconf/json_conv.h"
#include "agentconf/json_out.h"
#include "agentsim/sim_os.h"
#include "base/errors.h"

#include <climits>
#include <vector>

namespace {

constexpr int kStateVersion = 1;

bool FromHex(const char *text, size_t len, std::vector<uint8_t> *out) {
    if (len % 2 != 0) {
        return false;
    }
    out->resize(len / 2);
    for (size_t i = 0; i < len; i += 2) {
        int hi = OV_HexDigitValue(text[i]);
        int lo = OV_HexDigitValue(text[i + 1]);
        if (hi < 0 || lo < 0) {
            return false;
        }
        (*out)[i / 2] = static_cast<uint8_t>(hi << 4 | lo);
    }
    return true;
}

// An integer member in [0, max].
bool GetNumber(json_object *obj, const char *key, int64_t max, int64_t *out) {
    json_object *val = nullptr;
    if (!json_object_object_get_ex(obj, key, &val) || json_object_get_type(val) != json_type_int) {
        return false;
    }
    int64_t v = json_object_get_int64(val);
    if (v < 0 || v > max) {
        return false;
    }
    *out = v;
    return true;
}

void AppendLine(const SimRecord &rec, std::string *text) {
    json_object *obj = json_object_new_object();
    ovrec::AddInt(obj, "module", rec.module);
    ovrec::AddInt(obj, "function", rec.function);
    const char *command = SimCommandName(rec.module, rec.function, rec.bytes);
    json_object_object_add(obj, "command",
                           command == nullptr ? nullptr : json_object_new_string(command));
    ovrec::AddString(obj, "payload", ovrec::HexText(rec.bytes.data(), rec.bytes.size()));
    *text += text->back() == '[' ? "\n" : ",\n";
    *text += json_object_to_json_string_ext(obj, JSON_C_TO_STRING_SPACED);
    json_object_put(obj);
}

} // namespace

std::string SimStateText(const SimStore &store) {
    std::string text = "{\"agentsim_state\": " + std::to_string(kStateVersion) + ", \"records\": [";
    for (const SimRecord *rec : SimPersistentRecords(store)) {
        // An access name's entry requests follow it, as they arrived.
        AppendLine(*rec, &text);
        for (const SimRecord &part : rec->parts) {
            AppendLine(part, &text);
        }
    }
    text += "]}\n";
    return text;
}

int32_t SimStateRestore(SimContext &ctx, const std::string &text, std::string *error) {
    if (text.size() > INT32_MAX) {
        *error = "too large";
        return -OV_EINVAL;
    }
    json_tokener *tok = json_tokener_new();
    if (tok == nullptr) {
        *error = "out of memory";
        return -OV_ENOMEM;
    }
    OV_JsonPtr root(json_tokener_parse_ex(tok, text.c_str(), static_cast<int>(text.size())));
    bool complete = json_tokener_get_error(tok) == json_tokener_success &&
                    json_tokener_get_parse_end(tok) == text.size();
    json_tokener_free(tok);
    if (root == nullptr || !complete) {
        *error = "not a JSON text";
        return -OV_EINVAL;
    }
    int64_t version = 0;
    json_object *records = nullptr;
    if (!GetNumber(root.get(), "agentsim_state", INT32_MAX, &version) || version != kStateVersion ||
        !json_object_object_get_ex(root.get(), "records", &records) ||
        json_object_get_type(records) != json_type_array) {
        *error = "not an agentsim state (version 1)";
        return -OV_EINVAL;
    }
    SimContext restored;
    restored.sa = ctx.sa;
    std::vector<uint8_t> bytes;
    for (size_t i = 0; i < json_object_array_length(records); ++i) {
        json_object *rec = json_object_array_get_idx(records, i);
        json_object *payload = nullptr;
        int64_t module = 0;
        int64_t function = 0;
        if (json_object_get_type(rec) != json_type_object ||
            !GetNumber(rec, "module", 255, &module) ||
            !GetNumber(rec, "function", 65535, &function) ||
            !json_object_object_get_ex(rec, "payload", &payload) ||
            json_object_get_type(payload) != json_type_string ||
            !FromHex(json_object_get_string(payload),
                     static_cast<size_t>(json_object_get_string_len(payload)), &bytes) ||
            SimRestoreRecord(restored, static_cast<uint8_t>(module),
                             static_cast<uint16_t>(function), bytes) != 0) {
            *error =
                "record " + std::to_string(i + 1) + " is not a persistent record of a set function";
            return -OV_EINVAL;
        }
    }
    if (restored.acsName.Waiting()) {
        *error = "the last access name lacks entry requests";
        return -OV_EINVAL;
    }
    ctx.store = std::move(restored.store);
    return 0;
}

int32_t SimStateLoad(SimContext &ctx, const std::string &path, std::string *error) {
    std::string text;
    int32_t rc = SimReadFile(path, &text);
    if (rc == -OV_ENOENT) {
        return 0;
    }
    if (rc != 0) {
        *error = std::string("cannot read it: ") + OV_StrError(-rc);
        return rc;
    }
    return SimStateRestore(ctx, text, error);
}

int32_t SimStateSave(const SimStore &store, const std::string &path) {
    return SimWriteFileAtomic(path, SimStateText(store));
}
