// The command words the end-to-end tests send and the arguments they give
// them: shared by the pdtool and pdctl suites, so both run the same words.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace e2e {

/// The engine rows with their parameter codes, and the argument they get.
struct EngineRow {
    const char *word;
    uint8_t code;
};
extern const EngineRow kEngineRows[18];
inline constexpr const char *kEngineArg = "value=30 wanid=2";

/// The rule rows with the function ids they send (table << 8 | operation);
/// set_dns_proxy and del_dns_proxy run as set_dns and del_dns (kept).
struct RuleRow {
    const char *word;
    int function;
};
extern const RuleRow kRuleSetRows[5];
extern const RuleRow kRuleDelRows[5];
inline constexpr const char *kRuleDelArg = "zone=1 id=7";

/// The tunnel sample of the usage text with the "VpnId" it lacks, so that it converts.
std::string TunnelSampleWithVpnId();

/// One line per row of pdtool's table, in table order, each a word with the
/// argument the pdtool suite gives it; every one reaches the agent.
std::vector<std::string> EveryCommandLine();

} // namespace e2e
