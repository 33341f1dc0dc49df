// The agent's module handlers as the simulator plays them: 25 module slots,
// one table-driven handler for every function of the protocol description
// (agentconf/protocol.h), and the get replies.
#pragma once

#include "agentconf/shaper.h"
#include "agentsim/sim_acsname.h"
#include "agentsim/sim_store.h"

#include <json-c/json.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

/// The shaper table reply counts its records in one byte.
constexpr size_t SIM_SHAPER_TABLE_MAX = 255;

/// What the handlers work on. The caller serialises calls.
struct SimContext {
    SimStore store;
    AgentSaClusterInfo sa{}; ///< what get_sa_cluster returns
    SimAcsNamePending acsName;
};

/// The outcome of one request.
struct SimResult {
    int32_t status = 0;             ///< 0 or a negative code, never positive
    std::vector<uint8_t> reply;     ///< reply data (gets only)
    bool persistentChanged = false; ///< the set of persistent records changed
};

/// Runs the handler in the module's slot. A module without a handler, or a
/// function its module does not know, gives -40 with no data; a payload of the
/// wrong size for the function -22; a delete or get of an absent key -2.
SimResult SimDispatch(SimContext &ctx, uint8_t module, uint16_t function,
                      std::span<const uint8_t> payload);

/// pdtool's command word for a request ("set_snat", "set_engine_srtt"), or
/// nullptr when no command sends it. Engine rows share one function: the
/// record's parameter code tells them apart.
const char *SimCommandName(uint8_t module, uint16_t function, std::span<const uint8_t> payload);

/// The request's record as JSON (a new object owned by the caller), or
/// nullptr when the function carries no record or the size is wrong.
json_object *SimDecodeRequest(uint8_t module, uint16_t function, std::span<const uint8_t> payload);

/// Every stored record whose persistent flag is set, kind by kind in key
/// order. The pointers are valid until the store changes.
std::vector<const SimRecord *> SimPersistentRecords(const SimStore &store);

/// Puts a record back from the state file: only a set function's record of
/// the right size with its persistent flag set is taken, and the entry
/// requests of an access name after its record. Returns 0 or -22.
int32_t SimRestoreRecord(SimContext &ctx, uint8_t module, uint16_t function,
                         std::span<const uint8_t> payload);

/// The SA cluster reply: the record as it is.
std::vector<uint8_t> SimSaClusterReply(const AgentSaClusterInfo &sa);
