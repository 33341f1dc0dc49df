// The owners the Windows client accepts, decided on SID texts alone so both
// builds check the rule.
#include "imc/peer_identity.h"

#include <gtest/gtest.h>

namespace {

constexpr const char *kUser = "S-1-5-21-1-2-3-1001";

TEST(TrustedOwnerSid, AcceptsSystemAdministratorsAndTheUserOnly) {
    struct Case {
        const char *owner;
        const char *user;
        bool trusted;
    };
    const Case cases[] = {
        {"S-1-5-18", kUser, true},
        {"S-1-5-32-544", kUser, true},
        {kUser, kUser, true},
        {"S-1-5-18", "", true},
        {"S-1-5-21-1-2-3-1002", kUser, false}, // another user
        {"S-1-5-21-1-2-3-100", kUser, false},  // a prefix of the user
        {"S-1-5-32-545", kUser, false},        // Users
        {"S-1-5-32-5440", kUser, false},
        {"S-1-5-21-0-0-0-513", "S-1-5-21-0-0-0-1000", false}, // Wine's default owner group
        {"", "", false},
        {"S-1-5-", "S-1-5-", false},
    };
    for (const Case &c : cases) {
        EXPECT_EQ(OV_ImcTrustedOwnerSid(c.owner, c.user), c.trusted)
            << "owner '" << c.owner << "' user '" << c.user << "'";
    }
}

} // namespace
