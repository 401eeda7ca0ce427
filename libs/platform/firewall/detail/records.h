#pragma once
#include "foundation/string.h"
#include "platform/firewall/firewall_policy.h"
#include <vector>

namespace platform::detail {

struct RuleRecord {
    fn::String name;
    fn::String description;
    fn::String applicationName; ///< Empty: for all.
    LONG protocol = NET_FW_IP_PROTOCOL_ANY;
    LONG profiles = NET_FW_PROFILE2_ALL;
    NET_FW_RULE_DIRECTION direction = NET_FW_RULE_DIR_IN;
    NET_FW_ACTION action = NET_FW_ACTION_BLOCK;
    bool isEnabled = false;
};

struct ApplicationRecord {
    fn::String imageFileName;
    fn::String name;
    bool isEnabled = true;
};

/// For which kinds of networks the firewall is on, and of which kinds the current ones are.
struct ProfileRecord {
    LONG currentTypes = NET_FW_PROFILE2_PUBLIC;
    bool isOnForDomain = true;
    bool isOnForPrivate = true;
    bool isOnForPublic = true;
};

/// What the user's file says.
struct FirewallRecords {
    ProfileRecord profiles;
    std::vector<RuleRecord> rules;
    std::vector<ApplicationRecord> applications;
};

constexpr bool isProtocol(LONG value) noexcept { return value >= 0 && value <= NET_FW_IP_PROTOCOL_ANY; }
constexpr bool isDirection(LONG value) noexcept { return value == NET_FW_RULE_DIR_IN || value == NET_FW_RULE_DIR_OUT; }
constexpr bool isAction(LONG value) noexcept { return value == NET_FW_ACTION_BLOCK || value == NET_FW_ACTION_ALLOW; }
constexpr bool areProfiles(LONG value) noexcept { return value == NET_FW_PROFILE2_ALL || (value >= 1 && value <= 7); }

} // namespace platform::detail
