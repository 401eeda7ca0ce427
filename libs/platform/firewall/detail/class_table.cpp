#include "platform/com/detail/class_table.h"
#include "platform/firewall/detail/class_objects.h"
#include "platform/firewall/firewall_manager.h"
#include "platform/firewall/firewall_policy.h"

namespace platform::detail {
namespace {

constexpr auto action = "change which programs the firewall admits";

constexpr ClassEntry entries[] = {
    { CLSID_NetFwMgr, makeManager, action },
    { CLSID_NetFwAuthorizedApplication, makeAuthorizedApplication, nullptr },
    { CLSID_NetFwPolicy2, makePolicy, action },
    { CLSID_NetFwRule, makeRule, nullptr },
};

} // namespace

std::span<const ClassEntry> classes() noexcept { return entries; }

} // namespace platform::detail
