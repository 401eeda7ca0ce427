#include "base/utf8.h"
#include "core/services/firewall_configurator/detail/bstr.h"
#include "core/services/firewall_configurator/detail/firewall_configurators.h"
#include "core/services/firewall_configurator/detail/log.h"
#include "core/services/firewall_configurator/detail/rule_enumeration.h"

namespace core {

using namespace platform;
using detail::Bstr;
using detail::ComPtr;
using detail::failure;
using detail::printable;

namespace {

FN_LOG_CATEGORY("core.firewall");

constexpr auto notAdded = "Couldn't add firewall rule!";

HRESULT put(INetFwRule& rule, HRESULT (INetFwRule::*setter)(BSTR), const fn::String& value)
{
    const Bstr text(value);
    return text ? (rule.*setter)(text.get()) : E_OUTOFMEMORY;
}

/// Makes a rule that admits a program everywhere. Stops at the first failure.
HRESULT describe(INetFwRule& rule, const fn::String& path, const fn::String& name)
{
    HRESULT result = put(rule, &INetFwRule::put_Name, name);
    if (SUCCEEDED(result)) {
        result = put(rule, &INetFwRule::put_Description, "Allow incoming network traffic to " + name);
    }
    if (SUCCEEDED(result)) result = put(rule, &INetFwRule::put_ApplicationName, path);
    if (SUCCEEDED(result)) result = rule.put_Profiles(NET_FW_PROFILE2_ALL);
    if (SUCCEEDED(result)) result = rule.put_Action(NET_FW_ACTION_ALLOW);
    if (SUCCEEDED(result)) result = rule.put_Enabled(VARIANT_TRUE);
    return result;
}

HRESULT add(INetFwRules& rules, INetFwRule& rule, NET_FW_RULE_DIRECTION direction)
{
    HRESULT result = rule.put_Direction(direction);
    if (SUCCEEDED(result)) result = rules.Add(&rule);
    if (FAILED(result)) failure(notAdded);
    return result;
}

} // namespace

AdvancedFirewallConfigurator::~AdvancedFirewallConfigurator()
{
    if (_policy) close();
}

bool AdvancedFirewallConfigurator::initialize(bool elevated)
try {
    if (_policy && (!elevated || _elevated)) return true;
    close();
    if (!detail::initializeCom(_comResult)) {
        FN_LOGF(Error, "CoInitializeEx failed: 0x%08lx\n", printable(_comResult));
        return false;
    }
    const HRESULT result = detail::create(elevated, CLSID_NetFwPolicy2, IID_INetFwPolicy2, _policy);
    if (FAILED(result)) {
        FN_LOGF(Error, "CoCreateInstance for INetFwPolicy2 failed: 0x%08lx\n", printable(result));
        close();
        return false;
    }
    _elevated = elevated;
    return true;
} catch (...) {
    close();
    return detail::caught();
}

void AdvancedFirewallConfigurator::close()
{
    _policy.reset();
    detail::uninitializeCom(_comResult);
}

bool AdvancedFirewallConfigurator::getRules(ComPtr<INetFwRules>& rules)
{
    if (SUCCEEDED(_policy->get_Rules(rules.receive())) && rules) return true;
    return failure("Can't retrieve firewall rules!");
}

bool AdvancedFirewallConfigurator::isFirewallEnabled(bool& enabled)
try {
    enabled = false;
    if (!_policy) return failure(detail::profileMissing);
    LONG current = 0;
    HRESULT result = _policy->get_CurrentProfileTypes(&current);
    if (FAILED(result)) {
        FN_LOGF(Error, "get_CurrentProfileTypes failed: 0x%08lx\n", printable(result));
        return false;
    }
    bool isOn = true;
    for (const auto type : { NET_FW_PROFILE2_DOMAIN, NET_FW_PROFILE2_PRIVATE, NET_FW_PROFILE2_PUBLIC }) {
        if ((current & type) == 0) continue;
        VARIANT_BOOL value = VARIANT_TRUE;
        result = _policy->get_FirewallEnabled(type, &value);
        if (SUCCEEDED(result) && value == VARIANT_FALSE) isOn = false;
    }
    if (FAILED(result)) return false; // The last one decides whether there is an answer.
    enabled = isOn;
    return true;
} catch (...) {
    return detail::caught();
}

bool AdvancedFirewallConfigurator::isApplicationAuthorized(
    bool& inbound, bool& outbound, const fn::String& applicationPath)
try {
    inbound = outbound = false;
    if (!_policy) return failure(detail::profileMissing);
    ComPtr<INetFwRules> rules;
    if (!getRules(rules)) return false;
    LONG count = 0;
    if (FAILED(rules->get_Count(&count))) return failure("Can't retrieve the number of firewall rules!");

    detail::RuleEnumeration enumeration(*rules);
    while (!inbound || !outbound) {
        const auto rule = enumeration.next();
        if (!rule) break;
        if (rule->applicationName != applicationPath) continue;
        (rule->direction == NET_FW_RULE_DIR_IN ? inbound : outbound) = true;
    }
    return true;
} catch (...) {
    return detail::caught();
}

bool AdvancedFirewallConfigurator::authorizeApplication(
    const fn::String& applicationPath, const fn::String& name, bool inbound, bool outbound)
try {
    if (!fn::isUTF8(applicationPath)) return failure(detail::pathNotText);
    if (applicationPath.empty()) return failure(notAdded); // It would admit every program.
    if (!initialize(true)) return failure(detail::elevationMissing);
    ComPtr<INetFwRules> rules;
    if (!getRules(rules)) return false;
    LONG current = 0; // Unused: the call only tests whether the firewall answers. The rule is for all profiles.
    if (FAILED(_policy->get_CurrentProfileTypes(&current))) {
        return failure("Can't retrieve firewall profile types!");
    }
    ComPtr<INetFwRule> rule;
    if (FAILED(detail::create(detail::notElevated, CLSID_NetFwRule, IID_INetFwRule, rule))) {
        return failure("Can't create firewall rule!");
    }
    HRESULT result = describe(*rule, applicationPath, name);
    if (FAILED(result)) return false;
    if (inbound) result = add(*rules, *rule, NET_FW_RULE_DIR_IN);
    if (outbound) result = add(*rules, *rule, NET_FW_RULE_DIR_OUT);
    return SUCCEEDED(result);
} catch (...) {
    return detail::caught();
}

} // namespace core
