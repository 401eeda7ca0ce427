#include "platform/com/detail/class_table.h"
#include "platform/firewall/detail/class_objects.h"
#include "platform/firewall/firewall_manager.h"
#include "platform/firewall/firewall_policy.h"
#include <algorithm>
#include <iterator>

namespace platform::detail {
namespace {

constexpr auto action = "change which programs the firewall admits";

constexpr ClassEntry classes[] = {
    { CLSID_NetFwMgr, makeManager, action },
    { CLSID_NetFwAuthorizedApplication, makeAuthorizedApplication, nullptr },
    { CLSID_NetFwPolicy2, makePolicy, action },
    { CLSID_NetFwRule, makeRule, nullptr },
};

} // namespace

const ClassEntry* findClass(REFCLSID id) noexcept
{
    const auto* const found = std::ranges::find(classes, id, &ClassEntry::id);
    return found == std::end(classes) ? nullptr : found;
}

} // namespace platform::detail
