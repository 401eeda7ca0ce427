#pragma once
#include "base/string.h"
#include "platform/firewall/firewall_policy.h"
#include <vector>

namespace platform::detail {

struct RuleRecord {
    fn::String name;
    fn::String description;
    fn::String applicationName; ///< Empty: for all programs.
    LONG protocol = NET_FW_IP_PROTOCOL_ANY;
    LONG profiles = NET_FW_PROFILE2_ALL;
    LONG direction = NET_FW_RULE_DIR_IN;
    LONG action = NET_FW_ACTION_BLOCK;
    bool isEnabled = false;
};

struct ApplicationRecord {
    fn::String imageFileName;
    fn::String name;
    bool isEnabled = true;
};

/// The kinds of networks for which the firewall is on, and the kinds of the current networks.
struct ProfileRecord {
    LONG currentTypes = NET_FW_PROFILE2_PUBLIC;
    bool isOnForDomain = true;
    bool isOnForPrivate = true;
    bool isOnForPublic = true;

    /// Whether the firewall is on for all kinds in `types`.
    bool isOnFor(LONG types) const
    {
        return (!(types & NET_FW_PROFILE2_DOMAIN) || isOnForDomain)
            && (!(types & NET_FW_PROFILE2_PRIVATE) || isOnForPrivate)
            && (!(types & NET_FW_PROFILE2_PUBLIC) || isOnForPublic);
    }
};

/// The content of the user's file.
struct FirewallRecords {
    ProfileRecord profiles;
    std::vector<RuleRecord> rules;
    std::vector<ApplicationRecord> applications;
};

} // namespace platform::detail
