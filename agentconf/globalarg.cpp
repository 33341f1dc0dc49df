// Data-plane global-argument JSON to the 24-byte global-argument record.
#include "agentconf/globalarg.h"

#include "agentconf/json_conv.h"

#include <limits>

namespace {

bool IsBlank(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}

/// An unsigned decimal number at the start of text, after white space; the
/// digits end at the first other character, so "42x" gives 42. False when no
/// digit starts the text, or when the number does not fit under max: an
/// overflowing text is not a valid number of the field's width.
bool ParseUnsignedDecimal(const char *text, uint64_t max, uint64_t *out) {
    const char *p = text;
    while (IsBlank(*p)) {
        ++p;
    }
    if (*p < '0' || *p > '9') {
        return false;
    }
    uint64_t v = 0;
    for (; *p >= '0' && *p <= '9'; ++p) {
        auto digit = static_cast<uint64_t>(*p - '0');
        if (v > (max - digit) / 10) {
            return false;
        }
        v = v * 10 + digit;
    }
    *out = v;
    return true;
}

/// Range items are read with the library's integer accessor and must fit u16.
bool ReadRangeItem(json_object *item, uint16_t *out) {
    if (item == nullptr) {
        return false;
    }
    int32_t v = json_object_get_int(item);
    if (v < 0 || v > 65535) {
        return false;
    }
    *out = static_cast<uint16_t>(v);
    return true;
}

} // namespace

int32_t _OV_AgentGlobalArgJsonToConf(AgentGlobalArgConf *conf, json_object *obj) {
    uint32_t word = 0;
    int32_t rc = _OV_JsonGetInt(obj, "Type", &word);
    if (rc != 0) {
        OV_CONF_FAIL("Lack of Type\n");
        return rc;
    }
    conf->type = static_cast<uint16_t>(word); // 65549 is type 13
    rc = _OV_JsonGetInt(obj, "Lenth", &word);
    if (rc != 0) {
        OV_CONF_FAIL("Lack of Lenth\n");
        return rc;
    }
    // Not compared with the form's size: the agent gets it as the JSON states it.
    conf->lenth = static_cast<uint16_t>(word);

    switch (AgentGlobalArgFormOf(conf->type)) {
    case AgentGlobalArgForm::Value:
    case AgentGlobalArgForm::Value64: {
        const bool wide = conf->type == 25;
        const char *key = wide ? "Value64" : "Value";
        char text[OV_IPV6_TEXT_BUF]; // the same 49-character limit
        rc = _OV_JsonGetString(obj, key, text, sizeof text);
        if (rc == -22) {
            OV_CONF_FAIL("Lack of Value\n");
            return -22;
        }
        uint64_t v = 0;
        uint64_t max =
            wide ? std::numeric_limits<uint64_t>::max() : std::numeric_limits<uint32_t>::max();
        if (rc != 0 || !ParseUnsignedDecimal(text, max, &v)) {
            OV_CONF_FAIL("Get Value from %s failed\n", text);
            return -22;
        }
        if (wide) {
            conf->value.value64 = v;
        } else {
            conf->value.value = static_cast<uint32_t>(v);
        }
        return 0;
    }
    case AgentGlobalArgForm::Range: {
        json_object *range = nullptr;
        if (!json_object_object_get_ex(obj, "Range", &range)) {
            OV_CONF_FAIL("Lack of Range\n");
            return -22;
        }
        if (range == nullptr || json_object_get_type(range) != json_type_array ||
            json_object_array_length(range) != 2) {
            OV_CONF_FAIL("Inval range json\n");
            return -22;
        }
        // No order between low and high is enforced; the agent's business.
        if (!ReadRangeItem(json_object_array_get_idx(range, 0), &conf->value.range.low)) {
            OV_CONF_FAIL("Inval range low\n");
            return -22;
        }
        if (!ReadRangeItem(json_object_array_get_idx(range, 1), &conf->value.range.high)) {
            OV_CONF_FAIL("Inval range high\n");
            return -22;
        }
        return 0;
    }
    case AgentGlobalArgForm::Ipv6: {
        char text[OV_IPV6_TEXT_BUF];
        rc = _OV_JsonGetString(obj, "Ipv6", text, sizeof text);
        if (rc == -22) {
            OV_CONF_FAIL("Lack of Value\n");
            return -22;
        }
        if (rc != 0 || OV_Ipv6StrToConf(text, sizeof text, conf->value.ipv6) == nullptr) {
            OV_CONF_FAIL("Get Ipv6 from string:%s failed\n", text);
            return -22;
        }
        return 0;
    }
    case AgentGlobalArgForm::Rejected:
        break;
    }
    OV_CONF_FAIL("Unkown global type %u\n", static_cast<unsigned>(conf->type));
    return -22;
}

int32_t OV_AgentDpGlobalArgJsonStrToConf(AgentGlobalArgConf *conf, const char *text) {
    return OV_AgentConfJsonEntry(OV_CONF_SITE, "global arg", conf, text,
                                 _OV_AgentGlobalArgJsonToConf);
}
