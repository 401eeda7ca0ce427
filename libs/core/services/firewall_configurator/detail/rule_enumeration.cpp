#include "core/services/firewall_configurator/detail/rule_enumeration.h"
#include "core/services/firewall_configurator/detail/bstr.h"
#include "platform/com/result_codes.h"

namespace core::detail {

using namespace platform;

namespace {

/// A variant that is cleared at the end of its scope.
struct ScopedVariant : VARIANT {
    ScopedVariant() { VariantInit(this); }
    ScopedVariant(const ScopedVariant&) = delete;
    ScopedVariant& operator=(const ScopedVariant&) = delete;
    ~ScopedVariant() { VariantClear(this); }
};

HRESULT read(INetFwRule& rule, HRESULT (INetFwRule::*getter)(BSTR*), fn::String& value)
{
    Bstr text;
    const HRESULT result = (rule.*getter)(text.receive());
    if (SUCCEEDED(result)) value = platform::textOf(text.get());
    return result;
}

HRESULT read(INetFwRule& rule, RuleValues& values)
{
    VARIANT_BOOL isEnabled = VARIANT_FALSE;
    HRESULT result = read(rule, &INetFwRule::get_Name, values.name);
    if (SUCCEEDED(result)) result = read(rule, &INetFwRule::get_ApplicationName, values.applicationName);
    if (SUCCEEDED(result)) result = rule.get_Protocol(&values.protocol);
    if (SUCCEEDED(result)) result = rule.get_Enabled(&isEnabled);
    if (SUCCEEDED(result)) result = rule.get_Direction(&values.direction);
    values.isEnabled = isEnabled != VARIANT_FALSE;
    return result;
}

/// The element of a list that `Next()` gives, as a rule.
ComPtr<INetFwRule> nextRule(IEnumVARIANT& enumeration)
{
    ScopedVariant element;
    ULONG fetched = 0;
    if (enumeration.Next(1, &element, &fetched) != S_OK || fetched != 1) return {};
    if (FAILED(VariantChangeType(&element, &element, 0, VT_DISPATCH)) || !element.pdispVal) return {};
    return queryInterface<INetFwRule>(*element.pdispVal, IID_INetFwRule);
}

} // namespace

RuleEnumeration::RuleEnumeration(INetFwRules& rules)
{
    ComPtr<IUnknown> list;
    if (FAILED(rules.get__NewEnum(list.receive())) || !list) return;
    _enumeration = queryInterface<IEnumVARIANT>(*list, IID_IEnumVARIANT);
}

std::optional<RuleValues> RuleEnumeration::next()
{
    if (!_enumeration) return std::nullopt;
    const auto rule = nextRule(*_enumeration);
    RuleValues values;
    if (rule && SUCCEEDED(read(*rule, values))) return values;
    _enumeration.reset();
    return std::nullopt;
}

} // namespace core::detail
