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
    explicit Application(ApplicationRecord record) : _record(std::move(record)) { }

    HRESULT put_Name(BSTR name) override { return put(name, _record.name); }
    HRESULT put_ProcessImageFileName(BSTR path) override { return put(path, _record.imageFileName); }
    HRESULT get_Enabled(VARIANT_BOOL* enabled) override { return get(_record.isEnabled, enabled); }

    const ApplicationRecord& record() const { return _record; }

private:
    ApplicationRecord _record;
};

auto find(std::vector<ApplicationRecord>& list, const fn::String& path)
{
    return std::ranges::find(list, path, &ApplicationRecord::imageFileName);
}

class Applications final : public ComObject<INetFwAuthorizedApplications, IID_INetFwAuthorizedApplications> {
public:
    HRESULT Add(INetFwAuthorizedApplication* application) override
    {
        return guarded([&] {
            const auto* const own = dynamic_cast<Application*>(application);
            if (!own || own->record().imageFileName.empty()) return E_INVALIDARG;
            updateRecords([&](FirewallRecords& records) {
                auto& list = records.applications;
                const auto found = find(list, own->record().imageFileName);
                (found == list.end() ? list.emplace_back() : *found) = own->record();
            });
            return S_OK;
        });
    }

    HRESULT Item(BSTR path, INetFwAuthorizedApplication** application) override
    {
        *application = nullptr;
        return guarded([&] {
            auto list = readRecords().applications;
            const auto found = find(list, textOf(path));
            if (found == list.end()) return HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND);
            return handOut<Application>(application, *found);
        });
    }
};

class Profile final : public ComObject<INetFwProfile, IID_INetFwProfile> {
public:
    HRESULT get_FirewallEnabled(VARIANT_BOOL* enabled) override
    {
        return guarded([&] {
            const auto profiles = readRecords().profiles;
            return get(profiles.isOnFor(profiles.currentTypes), enabled);
        });
    }
    HRESULT get_AuthorizedApplications(INetFwAuthorizedApplications** applications) override
    {
        return handOut<Applications>(applications);
    }
};

class Policy final : public ComObject<INetFwPolicy, IID_INetFwPolicy> {
public:
    HRESULT get_CurrentProfile(INetFwProfile** profile) override { return handOut<Profile>(profile); }
};

class Manager final : public ComObject<INetFwMgr, IID_INetFwMgr> {
public:
    HRESULT get_LocalPolicy(INetFwPolicy** policy) override { return handOut<Policy>(policy); }
};

} // namespace

HRESULT makeManager(REFIID iid, void** object) { return makeObject<Manager>(iid, object); }

HRESULT makeAuthorizedApplication(REFIID iid, void** object) { return makeObject<Application>(iid, object); }

} // namespace platform::detail
