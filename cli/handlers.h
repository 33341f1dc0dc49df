// The command handlers of pdtool's table, one per kind of command.
#pragma once

#include <cstdint>

// Set commands: JSON argument, converted into the command's record and sent.
int32_t CmdRuleSet(const char *arg, char *out, uint32_t outLen, uint16_t id);
int32_t CmdLinkIpSet(const char *arg, char *out, uint32_t outLen, uint16_t id);
int32_t CmdLinkSet(const char *arg, char *out, uint32_t outLen, uint16_t id);
int32_t CmdConnSet(const char *arg, char *out, uint32_t outLen, uint16_t id);
int32_t CmdConnCmdSet(const char *arg, char *out, uint32_t outLen, uint16_t id);
int32_t CmdShaperSet(const char *arg, char *out, uint32_t outLen, uint16_t id);
int32_t CmdRatelimitSet(const char *arg, char *out, uint32_t outLen, uint16_t id);
int32_t CmdAcsNameSet(const char *arg, char *out, uint32_t outLen, uint16_t id);

// Delete and engine commands: key=value arguments.
int32_t CmdRuleDel(const char *arg, char *out, uint32_t outLen, uint16_t id);
int32_t CmdLinkIpDel(const char *arg, char *out, uint32_t outLen, uint16_t id);
int32_t CmdLinkDel(const char *arg, char *out, uint32_t outLen, uint16_t id);
int32_t CmdConnDel(const char *arg, char *out, uint32_t outLen, uint16_t id);
int32_t CmdShaperDel(const char *arg, char *out, uint32_t outLen, uint16_t id);
int32_t CmdRatelimitDel(const char *arg, char *out, uint32_t outLen, uint16_t id);
int32_t CmdAcsNameDel(const char *arg, char *out, uint32_t outLen, uint16_t id);
int32_t CmdEngineParamSet(const char *arg, char *out, uint32_t outLen, uint16_t id);

// Get commands: reply text left in the output buffer.
int32_t CmdShaperGet(const char *arg, char *out, uint32_t outLen, uint16_t id);
int32_t CmdShaperTblGet(const char *arg, char *out, uint32_t outLen, uint16_t id);
int32_t CmdSaClusterGet(const char *arg, char *out, uint32_t outLen, uint16_t id);

// Shared by the shaper delete and get: the id is the number after the first
// "shaperId=". Prints the refusal and returns false when the key is missing
// or the number lies outside 0..255.
bool ShaperIdArg(const char *arg, uint8_t *id);
