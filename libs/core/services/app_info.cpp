#include "core/services/app_info.h"
#include "base/exceptions.h"
#include "core/services/preferences.h"
#include "foundation/assertion.h"
#include "foundation/io/file.h"
#include "foundation/system/environment.h"
#include "foundation/system/path_manager.h"
#include "foundation/system/process_local.h"
#include "foundation/system/uuid.h"
#include "foundation/unhandled_exception.h"
#include "platform/operating_system_version.h"
#include <algorithm>

namespace core {
namespace {

constexpr auto appVariable = "ManagerAppType";
constexpr auto instanceIdKey = "instanceId";

fn::String identityFile()
{
    return fn::PathManager::instance().getPath(fn::PathManager::PreferencesFolder, "Instance.prefs", true);
}

} // namespace

AppInfo::AppInfo(const char* shortName, const char* displayName, const char* publicVersion, double internalVersion)
    : _shortName(shortName),
      _displayName(displayName),
      _publicVersion(publicVersion),
      _internalVersion(internalVersion)
{
}

void AppInfo::initialize(App app)
{
    fn::Environment::set(appVariable, fn::String::number(static_cast<int>(app)));
    if (const auto info = make(app)) fn::PathManager::instance().setApplicationName(info->folderName());
}

/// Null for a number that names no application: the environment may hold any.
std::unique_ptr<AppInfo> AppInfo::make(App app)
{
    switch (app) {
    case App::Skyfold: return std::unique_ptr<AppInfo>(new AppInfo("Skyfold", "Skyfold", "3.3.7", 168700.0));
    case App::Lumenhall: return std::unique_ptr<AppInfo>(new AppInfo("Lumenhall", "Lumen Hall", "3.0.0-alpha0", 300.0));
    }
    return nullptr;
}

AppInfo* AppInfo::find()
{
    static fn::ProcessLocal<std::unique_ptr<AppInfo>> instance;
    auto& existing = instance.get();
    if (existing) return existing.get();

    if (const auto app = fn::Environment::get(appVariable)) existing = make(static_cast<App>(app->toInt(0)));
    return existing.get();
}

AppInfo& AppInfo::instance()
{
    auto* const existing = find();
    if (!FN_ASSERT(existing, fn::sites::applicationIsKnown)) {
        throw fn::with(fn::RuntimeException("The application is not known: AppInfo::initialize has not been called"),
            fn::DetailInfo { fn::String(appVariable) + ": " + fn::Environment::get(appVariable).value_or("not set") });
    }
    return *existing;
}

fn::String AppInfo::operatingSystemVersion() const
{
    platform::OSVERSIONINFOEXW version {};
    version.dwOSVersionInfoSize = 284;
    if (!platform::GetVersionExW(&version)) return "?";
    auto servicePack = fn::String::fromUTF16(version.szCSDVersion).trim(true);
    if (!servicePack.empty()) servicePack = " (" + servicePack + ")";
    return fn::String::number(version.dwMajorVersion) + "." + fn::String::number(version.dwMinorVersion) + servicePack;
}

fn::String AppInfo::instanceId()
{
    if (!_instanceId.empty()) return _instanceId;
    try {
        Preferences preferences(identityFile());
        preferences.reload();
        const auto stored = preferences.root().get(instanceIdKey).asString();
        if (stored.empty()) {
            _instanceId = fn::UUIDGenerator::defaultGenerator().createOne().toString();
            preferences.root().set(instanceIdKey, _instanceId);
            preferences.save();
        } else {
            _instanceId = stored;
        }
    } catch (...) {
        fn::logException();
    }
    return _instanceId;
}

fn::Duration AppInfo::installationDuration() const
{
    const fn::File file(identityFile());
    if (!file.exists()) return {};
    try {
        const auto info = file.info();
        return fn::Timestamp::now() - std::min(info.created, info.modified);
    } catch (...) {
        return {};
    }
}

} // namespace core
