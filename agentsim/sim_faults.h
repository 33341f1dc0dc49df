// Faults on demand: rules, each scoped by module and function ("*" for every
// function), that make the simulator answer a request badly on purpose.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

enum class SimFaultKind : uint8_t {
    Status,   ///< answer with a fixed status; the request is not applied
    Delay,    ///< hold the reply back for a number of milliseconds
    Close,    ///< apply the request, then close without replying
    Truncate, ///< apply, send the header and only part of the reply, close
    Overlong, ///< apply, send a header announcing 2^63 payload bytes, close
    Garbage,  ///< apply, send random bytes instead of the reply, close
};

/// The payload length an overlong reply announces.
constexpr uint64_t SIM_OVERLONG_LEN = 1ull << 63;

struct SimFaultRule {
    SimFaultKind kind;
    uint8_t module;
    int32_t function; ///< -1 for every function
    int64_t value;    ///< the status or the milliseconds; 0 for the others
};

/// What happens to one request.
struct SimFaultPlan {
    uint32_t delayMs = 0;
    /// Status, Close, Truncate, Overlong or Garbage; none for a normal reply.
    std::optional<SimFaultKind> action;
    int32_t status = 0; ///< for Status
};

class SimFaults {
  public:
    /// Adds a rule from an option's text: "M:F" or "M:F=VALUE" (the value is
    /// required for Status and Delay and refused for the others). M is 0..24,
    /// F is 0..65535 or "*", a status is 0 or negative, a delay 0..3600000.
    /// Returns 0, or -22 with a message in *error.
    int32_t Add(SimFaultKind kind, const std::string &text, std::string *error);

    /// The plan for a request: of the rules that match, one naming the
    /// function beats one with "*", and among equals the one given last wins.
    /// The delay and the action are chosen separately.
    SimFaultPlan Plan(uint8_t module, uint16_t function) const;

    bool Empty() const { return rules_.empty(); }

  private:
    std::vector<SimFaultRule> rules_;
};

/// The option word of a kind without its "--fault-" ("status", "close", ...).
const char *SimFaultName(SimFaultKind kind);
