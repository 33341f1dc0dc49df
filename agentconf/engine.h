// The 104-byte engine parameter record (one setting of the acceleration
// engine) and its parameter codes. The command handler fills it itself.
#pragma once

#include <cstddef>
#include <cstdint>

/// Parameter codes: the low byte of the engine command's row id.
enum class AgentEngineParam : uint8_t {
    wanKbps = 1,
    wanBurstBytes = 2,
    tcpAccEnable = 3,
    subnetAccEnable = 5,
    shaperEnable = 6,
    hostFairTcpAccSessNum = 9,
    pcapEnable = 10,
    hostFairEnable = 11,
    wanInKbps = 12,
    wanInBurstBytes = 13,
    hostFairUdpSessNum = 14,
    cmd = 15,
    hostFairTcpActSessNum = 16,
    trackRandomLoss = 17,
    maxTxEnable = 18,
    conservMode = 19,
    engSysEnable = 20,
    srtt = 21,
};

/// The engine parameter record, little-endian, sent whole to module 8.
struct AgentEngineParamConf {
    uint8_t wanIndex;      ///< always 0 from pdtool
    uint8_t reserved1[3];  ///< zero
    uint8_t paramCode;     ///< an AgentEngineParam value
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
