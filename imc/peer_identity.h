// Who serves the configuration channel. Records carry keys and policy, so the
// client speaks only to an agent run by the system, an administrator or its
// own user; anyone else could have taken the pipe's name while the agent was
// down.
#pragma once

#include "imc/pipe.h"

#include <cstdint>
#include <string_view>

/// Checks the server end of a connection that nothing has been sent on yet.
/// POSIX: the peer's uid must be 0 or the caller's effective uid. Windows: the
/// pipe's owner, or else the server process's user, must pass
/// OV_ImcTrustedOwnerSid. Returns 0, or -13 after logging what was found.
/// The handle stays open either way.
int32_t OV_ImcCheckPeer(OV_PipeHandle h);

/// "S-1-" followed by the authority and at least one sub-authority, all decimal.
constexpr bool OV_ImcIsSidText(std::string_view sid) {
    constexpr std::string_view kRevision = "S-1-";
    if (sid.substr(0, kRevision.size()) != kRevision) {
        return false;
    }
    int groups = 0;
    bool digitSeen = false;
    for (char c : sid.substr(kRevision.size())) {
        if (c >= '0' && c <= '9') {
            digitSeen = true;
        } else if (c == '-' && digitSeen) {
            ++groups;
            digitSeen = false;
        } else {
            return false;
        }
    }
    return digitSeen && groups >= 1;
}

/// The owners the Windows client trusts, as SID texts: LocalSystem, the
/// Administrators group, and userSid (the user running the client). A text
/// that is no SID is never trusted, so an unreadable owner and an unreadable
/// user never match each other.
constexpr bool OV_ImcTrustedOwnerSid(std::string_view ownerSid, std::string_view userSid) {
    constexpr std::string_view kLocalSystem = "S-1-5-18";
    constexpr std::string_view kAdministrators = "S-1-5-32-544";
    if (!OV_ImcIsSidText(ownerSid)) {
        return false;
    }
    return ownerSid == kLocalSystem || ownerSid == kAdministrators ||
           (OV_ImcIsSidText(userSid) && ownerSid == userSid);
}
