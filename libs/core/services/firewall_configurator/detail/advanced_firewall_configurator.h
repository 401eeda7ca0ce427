#pragma once
#include "core/services/firewall_configurator/detail/com_root.h"
#include "core/services/firewall_configurator/firewall_configurator.h"
#include "platform/firewall/firewall_policy.h"

namespace core {

/// The configurator for the newer interface: rules with a direction.
class AdvancedFirewallConfigurator final : public FirewallConfigurator {
public:
    bool initialize(bool elevated) override;
    bool isFirewallEnabled(bool& enabled) override;

    /// A rule counts whether it is enabled or not, and for whatever protocol.
    bool isApplicationAuthorized(bool& inbound, bool& outbound, const fn::String& applicationPath) override;
    bool authorizeApplication(
        const fn::String& applicationPath, const fn::String& name, bool inbound, bool outbound) override;
    ~AdvancedFirewallConfigurator() override;

private:
    void close();
    bool getRules(detail::ComPtr<platform::INetFwRules>& rules);

    detail::ComPtr<platform::INetFwPolicy2> _policy;
    bool _elevated = false;
    platform::HRESULT _comResult = detail::comNotInitialized;
};

} // namespace core
