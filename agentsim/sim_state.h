// The state file: the records whose persistent flag is set, kept across
// restarts, each access name followed by its entry requests (functions 2
// and 3). The text is one JSON object, one request per line:
//   {"agentsim_state": 1, "records": [
//   {"module": 15, "function": 1, "command": "set_shaper_conf", "payload": "<hex>"},
//   ...]}
// A restart puts each record back as if its set request had arrived again.
#pragma once

#include "agentsim/sim_handlers.h"

#include <cstdint>
#include <string>

/// The file text for the store's persistent records.
std::string SimStateText(const SimStore &store);

/// Restores every record of a state text into ctx (whose store should be
/// empty). Returns 0, or -22 with a message in *error (nothing is kept then).
int32_t SimStateRestore(SimContext &ctx, const std::string &text, std::string *error);

/// Reads and restores path; a missing file is an empty state. Returns 0 or a
/// negative code with a message in *error.
int32_t SimStateLoad(SimContext &ctx, const std::string &path, std::string *error);

/// Rewrites path atomically with the store's persistent records. Returns 0
/// or a negative code.
int32_t SimStateSave(const SimStore &store, const std::string &path);
