#include "platform/firewall/detail/class_objects.h"
#include "platform/firewall/detail/properties.h"
#include "platform/firewall/detail/records_file.h"
#include "platform/firewall/firewall_manager.h"
#include <algorithm>

namespace platform::detail {
namespace {

class Application final : public ComObject<INetFwAuthorizedApplication, IID_INetFwAuthorizedApplication> {
public:
    Application() = default;
    explicit Application(ApplicationRecord record) : _origin(Origin::List), _record(std::move(record)) { }

    HRESULT get_Name(BSTR* name) override { return getText(_record.name, name); }
    HRESULT put_Name(BSTR name) override { return putText(_origin, name, _record.name); }
    HRESULT get_ProcessImageFileName(BSTR* path) override { return getText(_record.imageFileName, path); }
    HRESULT put_ProcessImageFileName(BSTR path) override { return putText(_origin, path, _record.imageFileName); }
    HRESULT get_Enabled(VARIANT_BOOL* enabled) override { return getFlag(_record.isEnabled, enabled); }
    HRESULT put_Enabled(VARIANT_BOOL enabled) override { return putFlag(_origin, enabled, _record.isEnabled); }

private:
    const Origin _origin = Origin::New;
    ApplicationRecord _record;
};

HRESULT readApplication(INetFwAuthorizedApplication& application, ApplicationRecord& record)
{
    using Read = INetFwAuthorizedApplication;
    VARIANT_BOOL isEnabled = VARIANT_FALSE;
    HRESULT result = readText(application, &Read::get_ProcessImageFileName, record.imageFileName);
    if (SUCCEEDED(result)) result = readText(application, &Read::get_Name, record.name);
    if (SUCCEEDED(result)) result = application.get_Enabled(&isEnabled);
    record.isEnabled = isEnabled != VARIANT_FALSE;
    if (SUCCEEDED(result) && record.imageFileName.empty()) return E_INVALIDARG;
    return result;
}

void putIn(std::vector<ApplicationRecord>& list, const ApplicationRecord& record)
{
    const auto found = std::ranges::find(list, record.imageFileName, &ApplicationRecord::imageFileName);
    if (found == list.end())
        list.push_back(record);
    else
        *found = record;
}

class Applications final : public ComObject<INetFwAuthorizedApplications, IID_INetFwAuthorizedApplications> {
public:
    explicit Applications(Rights rights) : _rights(rights) { }

    HRESULT get_Count(LONG* count) override
    {
        if (!count) return E_POINTER;
        return guarded([&] {
            *count = static_cast<LONG>(readRecords().applications.size());
            return S_OK;
        });
    }

    HRESULT Add(INetFwAuthorizedApplication* application) override
    {
        if (!application) return E_POINTER;
        if (_rights != Rights::Administrator) return E_ACCESSDENIED;
        ApplicationRecord record;
        const HRESULT result = readApplication(*application, record);
        if (FAILED(result)) return result;
        return guarded([&] {
            updateRecords([&](FirewallRecords& records) { putIn(records.applications, record); });
            return S_OK;
        });
    }

    HRESULT Item(BSTR path, INetFwAuthorizedApplication** application) override
    {
        if (!application) return E_POINTER;
        *application = nullptr;
        fn::String wanted;
        const HRESULT result = putText(Origin::New, path, wanted);
        if (FAILED(result)) return result;
        return guarded([&] {
            const auto records = readRecords();
            const auto& list = records.applications;
            const auto found = std::ranges::find(list, wanted, &ApplicationRecord::imageFileName);
            if (found == list.end()) return HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND);
            return handOut<Application>(application, *found);
        });
    }

private:
    const Rights _rights;
};

bool isOnForAll(const ProfileRecord& profiles)
{
    const auto types = profiles.currentTypes;
    return ((types & NET_FW_PROFILE2_DOMAIN) == 0 || profiles.isOnForDomain)
        && ((types & NET_FW_PROFILE2_PRIVATE) == 0 || profiles.isOnForPrivate)
        && ((types & NET_FW_PROFILE2_PUBLIC) == 0 || profiles.isOnForPublic);
}

class Profile final : public ComObject<INetFwProfile, IID_INetFwProfile> {
public:
    explicit Profile(Rights rights) : _rights(rights) { }

    HRESULT get_FirewallEnabled(VARIANT_BOOL* enabled) override
    {
        return guarded([&] { return getFlag(isOnForAll(readRecords().profiles), enabled); });
    }
    HRESULT get_AuthorizedApplications(INetFwAuthorizedApplications** applications) override
    {
        return handOut<Applications>(applications, _rights);
    }

private:
    const Rights _rights;
};

class Policy final : public ComObject<INetFwPolicy, IID_INetFwPolicy> {
public:
    explicit Policy(Rights rights) : _rights(rights) { }
    HRESULT get_CurrentProfile(INetFwProfile** profile) override { return handOut<Profile>(profile, _rights); }

private:
    const Rights _rights;
};

class Manager final : public ComObject<INetFwMgr, IID_INetFwMgr> {
public:
    explicit Manager(Rights rights) : _rights(rights) { }
    HRESULT get_LocalPolicy(INetFwPolicy** policy) override { return handOut<Policy>(policy, _rights); }

private:
    const Rights _rights;
};

} // namespace

HRESULT makeManager(Rights rights, REFIID iid, void** object) { return makeObject<Manager>(iid, object, rights); }

HRESULT makeAuthorizedApplication(Rights, REFIID iid, void** object) { return makeObject<Application>(iid, object); }

} // namespace platform::detail
