#include "core/services/firewall_configurator/firewall_configurator.h"
#include "core/services/firewall_configurator/detail/firewall_configurators.h"
#include "platform/firewall/firewall_file.h"

namespace core {

FirewallConfigurator::~FirewallConfigurator() = default;

std::unique_ptr<FirewallConfigurator> FirewallConfigurator::createBaseConfigurator()
{
    return std::make_unique<BaseFirewallConfigurator>();
}

std::unique_ptr<FirewallConfigurator> FirewallConfigurator::createAdvancedConfigurator()
{
    return std::make_unique<AdvancedFirewallConfigurator>();
}

fn::String FirewallConfigurator::rulesFile() { return platform::firewallFile(); }

} // namespace core
