#include "core/services/firewall_configurator/detail/log.h"
#include "foundation/unhandled_exception.h"

namespace core::detail {

FN_LOG_CATEGORY("core.firewall");

bool failure(const char* message, const std::source_location& where)
{
    const fn::logging::Site site { fnFileLogSource.text, static_cast<int>(where.line()), where.function_name() };
    fn::logging::writePrintf(fnFileLogCategory(), fn::logging::Error, {}, site, "%s", message);
    return false;
}

bool caught() noexcept
{
    fn::logException();
    return false;
}

} // namespace core::detail
