// The JSON samples of pdtool's usage text. Every one of them converts as
// printed, except the tunnel sample, which has no "VpnId" and is refused.
#pragma once

extern const char *const kUsageRuleSample;
extern const char *const kUsageLinkIpSample;
extern const char *const kUsageLinkSample;
extern const char *const kUsageTunnelSample;
extern const char *const kUsageConnCmdSample;
extern const char *const kUsageRatelimitSample;
extern const char *const kUsageShaperSample;
