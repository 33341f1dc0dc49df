// The 104-byte engine parameter record (one setting of the acceleration
// engine). The command handler fills it itself; the parameter codes are the
// engine rows' ids in agentconf/protocol.h.
#pragma once

#include <json-c/json.h>

#include <cstddef>
#include <cstdint>

/// The engine parameter record, little-endian, sent whole to the engine module.
struct AgentEngineParamConf {
    uint8_t wanIndex;      ///< always 0 from pdtool
    uint8_t reserved1[3];  ///< zero
    uint8_t paramCode;     ///< the command's parameter code (its row id)
    uint8_t reserved2[3];  ///< zero
    uint32_t value;        ///< the parameter's value
    uint8_t reserved3[92]; ///< zero
};
static_assert(sizeof(AgentEngineParamConf) == 104);
static_assert(offsetof(AgentEngineParamConf, wanIndex) == 0);
static_assert(offsetof(AgentEngineParamConf, reserved1) == 1);
static_assert(offsetof(AgentEngineParamConf, paramCode) == 4);
static_assert(offsetof(AgentEngineParamConf, reserved2) == 5);
static_assert(offsetof(AgentEngineParamConf, value) == 8);
static_assert(offsetof(AgentEngineParamConf, reserved3) == 12);

/// The engine parameter record as JSON. Returns a new object owned by the
/// caller, or nullptr when len is not the record's size.
json_object *OV_AgentEngineParamRecordToJson(const uint8_t *rec, size_t len);
