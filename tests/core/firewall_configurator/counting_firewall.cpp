#include "counting_firewall.h"
#include "foundation/string.h"
#include <algorithm>
#include <fmt/format.h>
#include <new>

namespace test {

using namespace platform;

/// An object whose references are counted and which never goes.
class Counted {
public:
    explicit Counted(std::string name) : name(std::move(name)) { }
    virtual ~Counted() = default;
    const std::string name;
    int references = 0;
};

namespace {

std::string utf8(BSTR text) { return fn::String::fromUTF16({ text, SysStringLen(text) }).toStdString(); }

template <typename Interface, const IID& interfaceId> class Object : public Interface, public Counted {
public:
    Object(CountingFirewall& firewall, std::string name) : Counted(std::move(name)), firewall(firewall) { }
    HRESULT QueryInterface(REFIID iid, void** object) override
    {
        *object = nullptr;
        const HRESULT result = firewall.enter(name + ".QueryInterface");
        if (FAILED(result)) return result;
        if (iid != interfaceId && iid != IID_IUnknown && iid != IID_IDispatch) return E_NOINTERFACE;
        AddRef();
        *object = static_cast<Interface*>(this);
        return S_OK;
    }
    ULONG AddRef() override { return static_cast<ULONG>(++references); }
    ULONG Release() override { return static_cast<ULONG>(--references); }

protected:
    HRESULT enter(const char* call) { return firewall.enter(name + "." + call); }
    CountingFirewall& firewall;
};

/// Makes a T and hands it out, unless this is the call that fails.
template <typename T, typename Interface, typename... Arguments>
HRESULT handOut(CountingFirewall& firewall, std::string call, Interface** object, Arguments... arguments)
{
    *object = nullptr;
    const HRESULT result = firewall.enter(std::move(call));
    if (FAILED(result)) return result;
    auto made = std::make_unique<T>(firewall, arguments...);
    made->AddRef();
    *object = made.get();
    firewall.adopt(std::move(made));
    return S_OK;
}

class Application : public Object<INetFwAuthorizedApplication, IID_INetFwAuthorizedApplication> {
public:
    explicit Application(CountingFirewall& firewall) : Object(firewall, "application") { }
    HRESULT get_Name(BSTR*) override { return E_UNEXPECTED; }
    HRESULT put_Name(BSTR text) override { return put("put_Name", text, _name); }
    HRESULT get_ProcessImageFileName(BSTR*) override { return E_UNEXPECTED; }
    HRESULT put_ProcessImageFileName(BSTR text) override { return put("put_ProcessImageFileName", text, _path); }
    HRESULT get_Enabled(VARIANT_BOOL* enabled) override
    {
        *enabled = firewall.isListedApplicationEnabled;
        return enter("get_Enabled");
    }
    HRESULT put_Enabled(VARIANT_BOOL) override { return E_UNEXPECTED; }
    std::string description() const { return _path + "|" + _name; }

private:
    HRESULT put(const char* call, BSTR text, std::string& property)
    {
        property = utf8(text);
        return enter(call);
    }
    std::string _path;
    std::string _name;
};

class Applications : public Object<INetFwAuthorizedApplications, IID_INetFwAuthorizedApplications> {
public:
    explicit Applications(CountingFirewall& firewall) : Object(firewall, "applications") { }
    HRESULT get_Count(LONG*) override { return E_UNEXPECTED; }
    HRESULT Add(INetFwAuthorizedApplication* application) override
    {
        firewall.added.push_back("application " + static_cast<Application*>(application)->description());
        return enter("Add");
    }
    HRESULT Item(BSTR path, INetFwAuthorizedApplication** application) override
    {
        *application = nullptr;
        if (utf8(path) == firewall.listedApplication) {
            return handOut<Application>(firewall, "applications.Item", application);
        }
        const HRESULT result = enter("Item");
        return FAILED(result) ? result : HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND);
    }
};

class Profile : public Object<INetFwProfile, IID_INetFwProfile> {
public:
    explicit Profile(CountingFirewall& firewall) : Object(firewall, "profile") { }
    HRESULT get_FirewallEnabled(VARIANT_BOOL* enabled) override
    {
        *enabled = firewall.typesThatAreOn != 0 ? VARIANT_TRUE : VARIANT_FALSE;
        return enter("get_FirewallEnabled");
    }
    HRESULT get_AuthorizedApplications(INetFwAuthorizedApplications** applications) override
    {
        return handOut<Applications>(firewall, "profile.get_AuthorizedApplications", applications);
    }
};

class Policy : public Object<INetFwPolicy, IID_INetFwPolicy> {
public:
    explicit Policy(CountingFirewall& firewall) : Object(firewall, "policy") { }
    HRESULT get_CurrentProfile(INetFwProfile** profile) override
    {
        return handOut<Profile>(firewall, "policy.get_CurrentProfile", profile);
    }
};

class Manager : public Object<INetFwMgr, IID_INetFwMgr> {
public:
    explicit Manager(CountingFirewall& firewall) : Object(firewall, "manager") { }
    HRESULT get_LocalPolicy(INetFwPolicy** policy) override
    {
        return handOut<Policy>(firewall, "manager.get_LocalPolicy", policy);
    }
};

class RuleObject : public Object<INetFwRule, IID_INetFwRule> {
public:
    explicit RuleObject(CountingFirewall& firewall, CountingFirewall::Rule rule = {})
        : Object(firewall, "rule"),
          _rule(rule)
    {
    }
    HRESULT get_Name(BSTR* name) override { return give("get_Name", "name", name); }
    HRESULT put_Name(BSTR text) override { return take("put_Name", utf8(text)); }
    HRESULT get_Description(BSTR*) override { return E_UNEXPECTED; }
    HRESULT put_Description(BSTR text) override { return take("put_Description", utf8(text)); }
    HRESULT get_ApplicationName(BSTR* path) override
    {
        return give("get_ApplicationName", _rule.applicationName, path);
    }
    HRESULT put_ApplicationName(BSTR text) override { return take("put_ApplicationName", utf8(text)); }
    HRESULT get_Protocol(LONG* protocol) override
    {
        *protocol = NET_FW_IP_PROTOCOL_UDP;
        return enter("get_Protocol");
    }
    HRESULT put_Protocol(LONG) override { return E_UNEXPECTED; }
    HRESULT get_Direction(NET_FW_RULE_DIRECTION* direction) override
    {
        *direction = _rule.direction;
        return enter("get_Direction");
    }
    HRESULT put_Direction(NET_FW_RULE_DIRECTION direction) override
    {
        _rule.direction = direction;
        return enter("put_Direction");
    }
    HRESULT get_Enabled(VARIANT_BOOL* enabled) override
    {
        *enabled = VARIANT_FALSE;
        return enter("get_Enabled");
    }
    HRESULT put_Enabled(VARIANT_BOOL enabled) override { return take("put_Enabled", fmt::to_string(enabled)); }
    HRESULT get_Profiles(LONG*) override { return E_UNEXPECTED; }
    HRESULT put_Profiles(LONG profiles) override { return take("put_Profiles", fmt::format("{:#x}", profiles)); }
    HRESULT get_Action(NET_FW_ACTION*) override { return E_UNEXPECTED; }
    HRESULT put_Action(NET_FW_ACTION action) override { return take("put_Action", fmt::to_string(LONG { action })); }
    std::string description() const
    {
        return fmt::format("{} {}", LONG { _rule.direction }, fmt::join(_properties, "|"));
    }

private:
    HRESULT give(const char* call, const std::string& value, BSTR* text)
    {
        *text = nullptr;
        const HRESULT result = enter(call);
        if (SUCCEEDED(result)) *text = firewall.allocate(value);
        return result;
    }
    HRESULT take(const char* call, std::string property)
    {
        _properties.push_back(std::move(property));
        return enter(call);
    }
    CountingFirewall::Rule _rule;
    std::vector<std::string> _properties;
};

class Enumeration : public Object<IEnumVARIANT, IID_IEnumVARIANT> {
public:
    explicit Enumeration(CountingFirewall& firewall) : Object(firewall, "enumeration") { }
    HRESULT Next(ULONG count, VARIANT* variant, ULONG* fetched) override
    {
        *fetched = 0;
        if (count != 1) return E_UNEXPECTED;
        const bool isEnd = _next == firewall.rules.size();
        if (isEnd) return FAILED(enter("Next")) ? CountingFirewall::failure : S_FALSE;
        INetFwRule* rule = nullptr;
        const HRESULT result = handOut<RuleObject>(firewall, "enumeration.Next", &rule, firewall.rules[_next]);
        if (FAILED(result)) return result;
        ++_next;
        variant->vt = VT_UNKNOWN;
        variant->punkVal = rule;
        *fetched = 1;
        return S_OK;
    }

private:
    std::size_t _next = 0;
};

class Rules : public Object<INetFwRules, IID_INetFwRules> {
public:
    explicit Rules(CountingFirewall& firewall) : Object(firewall, "rules") { }
    HRESULT get_Count(LONG* count) override
    {
        *count = 1;
        return enter("get_Count");
    }
    HRESULT Add(INetFwRule* rule) override
    {
        firewall.added.push_back("rule " + static_cast<RuleObject*>(rule)->description());
        return enter("Add");
    }
    HRESULT get__NewEnum(IUnknown** enumeration) override
    {
        return handOut<Enumeration>(firewall, "rules.get__NewEnum", enumeration);
    }
};

class Policy2 : public Object<INetFwPolicy2, IID_INetFwPolicy2> {
public:
    explicit Policy2(CountingFirewall& firewall) : Object(firewall, "policy") { }
    HRESULT get_CurrentProfileTypes(LONG* types) override
    {
        *types = firewall.currentTypes;
        return enter("get_CurrentProfileTypes");
    }
    HRESULT get_FirewallEnabled(NET_FW_PROFILE_TYPE2 type, VARIANT_BOOL* enabled) override
    {
        *enabled = (firewall.typesThatAreOn & type) != 0 ? VARIANT_TRUE : VARIANT_FALSE;
        return enter("get_FirewallEnabled");
    }
    HRESULT get_Rules(INetFwRules** rules) override { return handOut<Rules>(firewall, "policy.get_Rules", rules); }
};

template <typename T, typename Interface> HRESULT makeAs(CountingFirewall& firewall, bool isAskedFor, void** object)
{
    if (!isAskedFor) return E_NOINTERFACE;
    auto made = std::make_unique<T>(firewall);
    made->AddRef();
    *object = static_cast<Interface*>(made.get());
    firewall.adopt(std::move(made));
    return S_OK;
}

} // namespace

CountingFirewall::CountingFirewall() = default;
CountingFirewall::~CountingFirewall() = default;

HRESULT CountingFirewall::enter(std::string call)
{
    if (isThrowing) throw std::bad_alloc();
    const int index = static_cast<int>(calls.size());
    calls.push_back(std::move(call));
    return index == _failing ? failure : S_OK;
}

void CountingFirewall::adopt(std::unique_ptr<Counted> object) { _objects.push_back(std::move(object)); }

std::string CountingFirewall::imbalance() const
{
    std::string result;
    for (const auto& object : _objects) {
        if (object->references != 0) result += fmt::format("{}: {} references; ", object->name, object->references);
    }
    if (!_texts.empty()) result += fmt::format("{} texts; ", _texts.size());
    if (_wrongFrees != 0) result += fmt::format("{} wrong frees; ", _wrongFrees);
    if (_lateReleases != 0) result += fmt::format("{} objects outlived COM; ", _lateReleases);
    if (initializations != 0) result += fmt::format("COM initialized {} times", initializations);
    return result;
}

HRESULT CountingFirewall::coInitializeEx(void* reserved, DWORD mode)
{
    const HRESULT result = enter("CoInitializeEx");
    if (FAILED(result)) return result;
    if (reserved || mode != COINIT_APARTMENTTHREADED) return E_INVALIDARG;
    if (SUCCEEDED(initialization)) ++initializations;
    return initialization;
}

void CountingFirewall::coUninitialize()
{
    --initializations;
    ++uninitializations;
    if (std::ranges::any_of(_objects, [](const auto& object) { return object->references != 0; })) ++_lateReleases;
}

HRESULT CountingFirewall::make(REFCLSID clsid, REFIID iid, void** object)
{
    if (clsid == CLSID_NetFwMgr) return makeAs<Manager, INetFwMgr>(*this, iid == IID_INetFwMgr, object);
    if (clsid == CLSID_NetFwPolicy2) return makeAs<Policy2, INetFwPolicy2>(*this, iid == IID_INetFwPolicy2, object);
    if (clsid == CLSID_NetFwRule) return makeAs<RuleObject, INetFwRule>(*this, iid == IID_INetFwRule, object);
    if (clsid != CLSID_NetFwAuthorizedApplication) return REGDB_E_CLASSNOTREG;
    return makeAs<Application, INetFwAuthorizedApplication>(*this, iid == IID_INetFwAuthorizedApplication, object);
}

HRESULT CountingFirewall::coCreateInstance(REFCLSID clsid, IUnknown* outer, DWORD context, REFIID iid, void** object)
{
    *object = nullptr;
    const HRESULT result = enter("CoCreateInstance");
    if (FAILED(result)) return result;
    if (outer || context != CLSCTX_INPROC_SERVER) return E_INVALIDARG;
    return make(clsid, iid, object);
}

HRESULT CountingFirewall::coGetObject(const OLECHAR* name, BIND_OPTS* options, REFIID iid, void** object)
{
    *object = nullptr;
    const HRESULT result = enter("CoGetObject");
    if (FAILED(result)) return result;
    const auto& all = *static_cast<BIND_OPTS3*>(options);
    if (all.cbStruct != 36 || all.dwClassContext != 4 || all.hwnd || all.grfMode || all.pServerInfo) {
        return E_INVALIDARG;
    }
    moniker = fn::String::fromUTF16(name).toStdString();
    return make(iid == IID_INetFwMgr ? CLSID_NetFwMgr : CLSID_NetFwPolicy2, iid, object);
}

BSTR CountingFirewall::sysAllocStringLen(const OLECHAR* text, UINT length)
{
    if (FAILED(enter("SysAllocStringLen"))) return nullptr;
    const BSTR result = ComBackend::sysAllocStringLen(text, length);
    _texts.insert(result);
    return result;
}

BSTR CountingFirewall::allocate(const std::string& ascii)
{
    const std::u16string text(ascii.begin(), ascii.end());
    const BSTR result = ComBackend::sysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
    _texts.insert(result);
    return result;
}

void CountingFirewall::sysFreeString(BSTR text)
{
    if (!text) return;
    if (_texts.erase(text) == 0)
        ++_wrongFrees;
    else
        ComBackend::sysFreeString(text);
}

HRESULT CountingFirewall::variantChangeType(VARIANT* target, const VARIANT* source, WORD flags, VARTYPE type)
{
    const HRESULT result = enter("VariantChangeType");
    return FAILED(result) ? result : ComBackend::variantChangeType(target, source, flags, type);
}

} // namespace test
