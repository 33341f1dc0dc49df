// Parsing and matching of the simulator's fault rules.
#include "agentsim/sim_faults.h"

#include "base/errors.h"
#include "imc/flexmsg.h"

#include <cerrno>
#include <cstdlib>

namespace {

constexpr int64_t kMaxDelayMs = 3600000;

// A whole decimal number in [min, max]; no blanks, no trailing text.
bool ParseNumber(const std::string &text, int64_t min, int64_t max, int64_t *out) {
    if (text.empty()) {
        return false;
    }
    char *end = nullptr;
    errno = 0;
    long long v = std::strtoll(text.c_str(), &end, 10);
    if (errno != 0 || *end != '\0' || end == text.c_str() || v < min || v > max || text[0] == ' ' ||
        text[0] == '+') {
        return false;
    }
    *out = v;
    return true;
}

bool NeedsValue(SimFaultKind kind) {
    return kind == SimFaultKind::Status || kind == SimFaultKind::Delay;
}

} // namespace

const char *SimFaultName(SimFaultKind kind) {
    switch (kind) {
    case SimFaultKind::Status:
        return "status";
    case SimFaultKind::Delay:
        return "delay";
    case SimFaultKind::Close:
        return "close";
    case SimFaultKind::Truncate:
        return "truncate";
    case SimFaultKind::Overlong:
        return "overlong";
    case SimFaultKind::Garbage:
        return "garbage";
    }
    return "";
}

int32_t SimFaults::Add(SimFaultKind kind, const std::string &text, std::string *error) {
    std::string scope = text;
    std::string value;
    size_t eq = text.find('=');
    if (eq != std::string::npos) {
        scope = text.substr(0, eq);
        value = text.substr(eq + 1);
    }
    std::string option = std::string("--fault-") + SimFaultName(kind);
    if (NeedsValue(kind) != (eq != std::string::npos)) {
        *error = option + " takes " +
                 (NeedsValue(kind) ? "MODULE:FUNCTION=VALUE" : "MODULE:FUNCTION") + ", not '" +
                 text + "'";
        return -OV_EINVAL;
    }
    size_t colon = scope.find(':');
    int64_t module = 0;
    int64_t function = -1;
    if (colon == std::string::npos ||
        !ParseNumber(scope.substr(0, colon), 0, IMC_MODULE_MAX - 1, &module) ||
        (scope.substr(colon + 1) != "*" &&
         !ParseNumber(scope.substr(colon + 1), 0, UINT16_MAX, &function))) {
        *error = option + ": '" + scope +
                 "' is not MODULE:FUNCTION (module 0..24, function 0..65535 or *)";
        return -OV_EINVAL;
    }
    int64_t number = 0;
    if (kind == SimFaultKind::Status && !ParseNumber(value, INT32_MIN, 0, &number)) {
        *error = option + ": the status '" + value + "' must be 0 or a negative 32-bit number";
        return -OV_EINVAL;
    }
    if (kind == SimFaultKind::Delay && !ParseNumber(value, 0, kMaxDelayMs, &number)) {
        *error = option + ": the delay '" + value + "' must be 0..3600000 milliseconds";
        return -OV_EINVAL;
    }
    rules_.push_back(
        SimFaultRule{kind, static_cast<uint8_t>(module), static_cast<int32_t>(function), number});
    return 0;
}

SimFaultPlan SimFaults::Plan(uint8_t module, uint16_t function) const {
    SimFaultPlan plan;
    const SimFaultRule *delay = nullptr;
    const SimFaultRule *action = nullptr;
    // Later rules win among equals; an exact function beats "*".
    auto better = [](const SimFaultRule *held, const SimFaultRule &rule) {
        return held == nullptr || rule.function >= 0 || held->function < 0;
    };
    for (const SimFaultRule &rule : rules_) {
        if (rule.module != module || (rule.function >= 0 && rule.function != function)) {
            continue;
        }
        const SimFaultRule *&slot = rule.kind == SimFaultKind::Delay ? delay : action;
        if (better(slot, rule)) {
            slot = &rule;
        }
    }
    if (delay != nullptr) {
        plan.delayMs = static_cast<uint32_t>(delay->value);
    }
    if (action != nullptr) {
        plan.action = action->kind;
        plan.status = static_cast<int32_t>(action->value);
    }
    return plan;
}
