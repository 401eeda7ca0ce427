#include "platform/firewall/firewall_file.h"
#include "platform/detail/user_data_folder.h"

namespace platform {

template class ScopedOverride<firewallFile, fn::String>;

fn::String firewallFile()
{
    const auto path = ScopedFirewallFile::current();
    return path.empty() ? detail::userDataFolder() + "/firewall.rules" : path;
}

} // namespace platform
