#include "platform/firewall/detail/class_objects.h"
#include "platform/firewall/detail/properties.h"
#include "platform/firewall/detail/records_file.h"
#include "platform/firewall/firewall_policy.h"

namespace platform::detail {
namespace {

class Rule final : public ComObject<INetFwRule, IID_INetFwRule> {
public:
    Rule() = default;
    explicit Rule(RuleRecord record) : _record(std::move(record)) { }

    HRESULT get_Name(BSTR* name) override { return get(_record.name, name); }
    HRESULT put_Name(BSTR name) override { return put(name, _record.name); }
    HRESULT put_Description(BSTR description) override { return put(description, _record.description); }
    HRESULT get_ApplicationName(BSTR* path) override { return get(_record.applicationName, path); }
    HRESULT put_ApplicationName(BSTR path) override { return put(path, _record.applicationName); }
    HRESULT get_Protocol(LONG* protocol) override { return get(_record.protocol, protocol); }
    HRESULT get_Direction(NET_FW_RULE_DIRECTION* direction) override { return get(_record.direction, direction); }
    HRESULT put_Direction(NET_FW_RULE_DIRECTION direction) override { return put(direction, _record.direction); }
    HRESULT get_Enabled(VARIANT_BOOL* enabled) override { return get(_record.isEnabled, enabled); }
    HRESULT put_Enabled(VARIANT_BOOL enabled) override { return put(enabled, _record.isEnabled); }
    HRESULT put_Profiles(LONG profiles) override { return put(profiles, _record.profiles); }
    HRESULT put_Action(NET_FW_ACTION action) override { return put(action, _record.action); }

    const RuleRecord& record() const { return _record; }

private:
    RuleRecord _record;
};

class RuleEnumeration final : public ComObject<IEnumVARIANT, IID_IEnumVARIANT> {
public:
    explicit RuleEnumeration(std::vector<RuleRecord> rules) : _rules(std::move(rules)) { }

    HRESULT Next(ULONG count, VARIANT* variants, ULONG* fetched) override
    {
        if (count != 1) return E_INVALIDARG;
        if (fetched) *fetched = 0;
        if (_next == _rules.size()) return S_FALSE;
        VariantInit(variants);
        const HRESULT result = handOut<Rule>(&variants->pdispVal, _rules[_next]);
        if (FAILED(result)) return result;
        variants->vt = VT_DISPATCH;
        if (fetched) *fetched = 1;
        ++_next;
        return S_OK;
    }

private:
    const std::vector<RuleRecord> _rules;
    std::size_t _next = 0;
};

class Rules final : public ComObject<INetFwRules, IID_INetFwRules> {
public:
    HRESULT get_Count(LONG* count) override
    {
        return guarded([&] { return get(readRecords().rules.size(), count); });
    }

    HRESULT Add(INetFwRule* rule) override
    {
        return guarded([&] {
            const auto* const own = dynamic_cast<Rule*>(rule);
            if (!own) return E_INVALIDARG;
            updateRecords([&](FirewallRecords& records) { records.rules.push_back(own->record()); });
            return S_OK;
        });
    }

    HRESULT get__NewEnum(IUnknown** enumeration) override
    {
        return guarded([&] { return handOut<RuleEnumeration>(enumeration, readRecords().rules); });
    }
};

class Policy final : public ComObject<INetFwPolicy2, IID_INetFwPolicy2> {
public:
    HRESULT get_CurrentProfileTypes(LONG* types) override
    {
        return guarded([&] { return get(readRecords().profiles.currentTypes, types); });
    }

    HRESULT get_FirewallEnabled(NET_FW_PROFILE_TYPE2 type, VARIANT_BOOL* enabled) override
    {
        return guarded([&] { return get(readRecords().profiles.isOnFor(type), enabled); });
    }

    HRESULT get_Rules(INetFwRules** rules) override { return handOut<Rules>(rules); }
};

} // namespace

HRESULT makePolicy(REFIID iid, void** object) { return makeObject<Policy>(iid, object); }

HRESULT makeRule(REFIID iid, void** object) { return makeObject<Rule>(iid, object); }

} // namespace platform::detail
