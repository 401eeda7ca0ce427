#pragma once
#include "core/services/firewall_configurator/detail/com_root.h"
#include "core/services/firewall_configurator/firewall_configurator.h"
#include "platform/firewall/firewall_manager.h"
#include "platform/firewall/firewall_policy.h"

namespace core {

/// The configurator for the older interface: a list of authorized applications.
class BaseFirewallConfigurator final : public FirewallConfigurator {
public:
    /// After a failure COM stays initialized until the next call.
    bool initialize(bool elevated) override;
    bool isFirewallEnabled(bool& enabled) override;
    bool isApplicationAuthorized(bool& inbound, bool& outbound, const fn::String& applicationPath) override;
    bool authorizeApplication(
        const fn::String& applicationPath, const fn::String& name, bool inbound, bool outbound) override;
    ~BaseFirewallConfigurator() override;

private:
    void close();
    bool open(bool elevated);
    bool getApplications(detail::ComPtr<platform::INetFwAuthorizedApplications>& applications);

    // Either all three are set or none.
    detail::ComPtr<platform::INetFwMgr> _manager;
    bool _elevated = false;
    detail::ComPtr<platform::INetFwPolicy> _policy;
    detail::ComPtr<platform::INetFwProfile> _profile;
    platform::HRESULT _comResult = detail::comNotInitialized;
};

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
