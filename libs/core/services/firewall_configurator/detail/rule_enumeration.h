#pragma once
#include "base/string.h"
#include "core/services/firewall_configurator/detail/com_ptr.h"
#include "platform/firewall/firewall_policy.h"
#include <optional>

namespace core::detail {

/// The values of a firewall's rule that the configurator looks at.
struct RuleValues {
    fn::String name;
    fn::String applicationName;
    platform::LONG protocol = 0;
    bool isEnabled = false;
    platform::NET_FW_RULE_DIRECTION direction {};
};

/// Goes once through the rules of a firewall.
class RuleEnumeration {
public:
    explicit RuleEnumeration(platform::INetFwRules& rules);

    /// The next rule; empty at the end, and at a failure, after which there are no more.
    std::optional<RuleValues> next();

private:
    ComPtr<platform::IEnumVARIANT> _enumeration;
};

} // namespace core::detail
