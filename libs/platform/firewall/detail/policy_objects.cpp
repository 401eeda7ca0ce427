#include "platform/firewall/detail/class_objects.h"
#include "platform/firewall/detail/properties.h"
#include "platform/firewall/detail/records_file.h"
#include "platform/firewall/firewall_policy.h"

namespace platform::detail {
namespace {

class Rule final : public ComObject<INetFwRule, IID_INetFwRule> {
public:
    Rule() = default;
    explicit Rule(RuleRecord record) : _origin(Origin::List), _record(std::move(record)) { }

    HRESULT get_Name(BSTR* name) override { return getText(_record.name, name); }
    HRESULT put_Name(BSTR name) override { return putText(_origin, name, _record.name); }
    HRESULT get_Description(BSTR* description) override { return getText(_record.description, description); }
    HRESULT put_Description(BSTR description) override { return putText(_origin, description, _record.description); }
    HRESULT get_ApplicationName(BSTR* path) override { return getText(_record.applicationName, path); }
    HRESULT put_ApplicationName(BSTR path) override { return putText(_origin, path, _record.applicationName); }
    HRESULT get_Protocol(LONG* protocol) override { return getNumber(_record.protocol, protocol); }
    HRESULT put_Protocol(LONG protocol) override
    {
        return putNumber(_origin, isProtocol(protocol), protocol, _record.protocol);
    }
    HRESULT get_Direction(NET_FW_RULE_DIRECTION* direction) override { return getNumber(_record.direction, direction); }
    HRESULT put_Direction(NET_FW_RULE_DIRECTION direction) override
    {
        return putNumber(_origin, isDirection(direction), direction, _record.direction);
    }
    HRESULT get_Enabled(VARIANT_BOOL* enabled) override { return getFlag(_record.isEnabled, enabled); }
    HRESULT put_Enabled(VARIANT_BOOL enabled) override { return putFlag(_origin, enabled, _record.isEnabled); }
    HRESULT get_Profiles(LONG* profiles) override { return getNumber(_record.profiles, profiles); }
    HRESULT put_Profiles(LONG profiles) override
    {
        return putNumber(_origin, areProfiles(profiles), profiles, _record.profiles);
    }
    HRESULT get_Action(NET_FW_ACTION* action) override { return getNumber(_record.action, action); }
    HRESULT put_Action(NET_FW_ACTION action) override
    {
        return putNumber(_origin, isAction(action), action, _record.action);
    }

private:
    const Origin _origin = Origin::New;
    RuleRecord _record;
};

HRESULT readNumbers(INetFwRule& rule, RuleRecord& record)
{
    VARIANT_BOOL isEnabled = VARIANT_FALSE;
    HRESULT result = rule.get_Protocol(&record.protocol);
    if (SUCCEEDED(result)) result = rule.get_Profiles(&record.profiles);
    if (SUCCEEDED(result)) result = rule.get_Direction(&record.direction);
    if (SUCCEEDED(result)) result = rule.get_Action(&record.action);
    if (SUCCEEDED(result)) result = rule.get_Enabled(&isEnabled);
    record.isEnabled = isEnabled != VARIANT_FALSE;
    const bool isPossible = isProtocol(record.protocol) && areProfiles(record.profiles) && isDirection(record.direction)
        && isAction(record.action);
    return SUCCEEDED(result) && !isPossible ? E_INVALIDARG : result;
}

HRESULT readRule(INetFwRule& rule, RuleRecord& record)
{
    HRESULT result = readText(rule, &INetFwRule::get_Name, record.name);
    if (SUCCEEDED(result)) result = readText(rule, &INetFwRule::get_Description, record.description);
    if (SUCCEEDED(result)) result = readText(rule, &INetFwRule::get_ApplicationName, record.applicationName);
    return SUCCEEDED(result) ? readNumbers(rule, record) : result;
}

class RuleEnumeration final : public ComObject<IEnumVARIANT, IID_IEnumVARIANT> {
public:
    explicit RuleEnumeration(std::vector<RuleRecord> rules) : _rules(std::move(rules)) { }

    HRESULT Next(ULONG count, VARIANT* variants, ULONG* fetched) override
    {
        if (fetched) *fetched = 0;
        if (!variants || (!fetched && count != 1)) return E_POINTER;
        const auto first = _next;
        ULONG filled = 0;
        while (filled < count && _next < _rules.size()) {
            IDispatch* rule = nullptr;
            const HRESULT result = handOut<Rule>(&rule, _rules[_next]);
            if (FAILED(result)) {
                while (filled > 0) VariantClear(&variants[--filled]);
                _next = first;
                return result;
            }
            VariantInit(&variants[filled]);
            variants[filled].vt = VT_DISPATCH;
            variants[filled].pdispVal = rule;
            ++filled;
            ++_next;
        }
        if (fetched) *fetched = filled;
        return filled == count ? S_OK : S_FALSE;
    }

private:
    const std::vector<RuleRecord> _rules;
    std::size_t _next = 0;
};

class Rules final : public ComObject<INetFwRules, IID_INetFwRules> {
public:
    explicit Rules(Rights rights) : _rights(rights) { }

    HRESULT get_Count(LONG* count) override
    {
        if (!count) return E_POINTER;
        return guarded([&] {
            *count = static_cast<LONG>(readRecords().rules.size());
            return S_OK;
        });
    }

    HRESULT Add(INetFwRule* rule) override
    {
        if (!rule) return E_POINTER;
        if (_rights != Rights::Administrator) return E_ACCESSDENIED;
        RuleRecord record;
        const HRESULT result = readRule(*rule, record);
        if (FAILED(result)) return result;
        return guarded([&] {
            updateRecords([&](FirewallRecords& records) { records.rules.push_back(record); });
            return S_OK;
        });
    }

    HRESULT get__NewEnum(IUnknown** enumeration) override
    {
        if (!enumeration) return E_POINTER;
        *enumeration = nullptr;
        return guarded([&] { return handOut<RuleEnumeration>(enumeration, readRecords().rules); });
    }

private:
    const Rights _rights;
};

class Policy final : public ComObject<INetFwPolicy2, IID_INetFwPolicy2> {
public:
    explicit Policy(Rights rights) : _rights(rights) { }

    HRESULT get_CurrentProfileTypes(LONG* types) override
    {
        return guarded([&] { return getNumber(readRecords().profiles.currentTypes, types); });
    }

    HRESULT get_FirewallEnabled(NET_FW_PROFILE_TYPE2 type, VARIANT_BOOL* enabled) override
    {
        return guarded([&] {
            const auto profiles = readRecords().profiles;
            switch (type) {
            case NET_FW_PROFILE2_DOMAIN: return getFlag(profiles.isOnForDomain, enabled);
            case NET_FW_PROFILE2_PRIVATE: return getFlag(profiles.isOnForPrivate, enabled);
            case NET_FW_PROFILE2_PUBLIC: return getFlag(profiles.isOnForPublic, enabled);
            default: return E_INVALIDARG;
            }
        });
    }

    HRESULT get_Rules(INetFwRules** rules) override { return handOut<Rules>(rules, _rights); }

private:
    const Rights _rights;
};

} // namespace

HRESULT makePolicy(Rights rights, REFIID iid, void** object) { return makeObject<Policy>(iid, object, rights); }

HRESULT makeRule(Rights, REFIID iid, void** object) { return makeObject<Rule>(iid, object); }

} // namespace platform::detail
