#include "core/firewall_configurator/detail/log.h"

namespace core::detail {

const fn::logging::Category& firewallLog()
{
    static const auto& category = fn::logging::CategoryManager::instance().getCategory("core.firewall");
    return category;
}

bool failure(const char* message)
{
    FN_LOGF_TO(firewallLog(), fn::logging::Error, {}, firewallSite, "%s", message);
    return false;
}

} // namespace core::detail
