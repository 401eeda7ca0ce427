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

constexpr auto familyVariable = "ManagerAppType";
constexpr auto identityVariable = "CORE_APPLICATION";
constexpr auto familyId = "skyfold";
constexpr auto family = { AppInfo::App::Skyfold, AppInfo::App::Lumenhall };

bool isOfFamily(AppInfo::App app) { return std::ranges::find(family, app) != family.end(); }

constexpr auto instanceIdKey = "instanceId";

fn::String withoutBlanks(const fn::String& text)
{
    auto result = text.toStdString();
    std::erase(result, ' ');
    return result;
}

fn::String identityFile()
{
    return fn::PathManager::instance().getPath(fn::PathManager::PreferencesFolder, "Instance.prefs", true);
}

} // namespace

AppInfo::AppInfo(App app) : AppInfo(identityOf(app))
{
    _shortName = app == App::Skyfold ? "Skyfold" : "Lumenhall";
    _internalVersion = app == App::Skyfold ? 168700.0 : 300.0;
}

AppInfo::AppInfo(const AppIdentity& identity)
    : _id(identity.id),
      _shortName(withoutBlanks(identity.name)),
      _displayName(identity.name),
      _publicVersion(identity.version)
{
}

AppIdentity AppInfo::identityOf(App app)
{
    switch (app) {
    case App::Skyfold: return { "skyfold", "Skyfold", "3.3.7" };
    case App::Lumenhall: return { "lumenhall", "Lumen Hall", "3.0.0-alpha0" };
    }
    throw fn::RangeException("No application has the number " + fn::String::number(static_cast<int>(app)));
}

void AppInfo::initialize(App app)
{
    fn::Environment::set(familyVariable, fn::String::number(static_cast<int>(app)));
    if (!isOfFamily(app)) return; // There is no instance then, here and in child processes.
    const auto identity = identityOf(app);
    fn::Environment::set(identityVariable, identity.toText());
    nameFolders(identity.id, familyId);
}

void AppInfo::initialize(const AppIdentity& identity)
{
    identity.check();
    for (const auto app : family) {
        const auto known = identityOf(app);
        if (identity == known) return initialize(app);
        if (identity.id == known.id) {
            throw fn::RuntimeException("The id \"" + identity.id + "\" belongs to " + known.name + " " + known.version
                    + ": choose another one for " + identity.name,
                fn::Exception::StackTrace::None);
        }
    }
    fn::Environment::unset(familyVariable); // It may come from an application that has started this one.
    fn::Environment::set(identityVariable, identity.toText());
    nameFolders(identity.id, identity.id);
}

void AppInfo::nameFolders(const fn::String& id, const fn::String& commonId)
{
    fn::PathManager::instance().setApplicationName(id, commonId);
}

fn::String AppInfo::commonId()
{
    const auto* const info = find();
    const auto isThis = [&](App app) { return identityOf(app).id == info->_id; };
    return !info || std::ranges::any_of(family, isThis) ? fn::String(familyId) : info->_id;
}

/// Null if the environment names no application; it may hold anything.
std::unique_ptr<AppInfo> AppInfo::ofEnvironment()
{
    if (const auto number = fn::Environment::get(familyVariable)) {
        const auto app = static_cast<App>(number->toInt(0));
        return isOfFamily(app) ? std::unique_ptr<AppInfo>(new AppInfo(app)) : nullptr;
    }
    const auto text = fn::Environment::get(identityVariable);
    if (!text) return nullptr;
    try {
        return std::unique_ptr<AppInfo>(new AppInfo(AppIdentity::fromText(*text)));
    } catch (const fn::RuntimeException&) {
        return nullptr;
    }
}

AppInfo* AppInfo::find()
{
    static fn::ProcessLocal<std::unique_ptr<AppInfo>> instance;
    auto& existing = instance.get();
    if (!existing) existing = ofEnvironment();
    return existing.get();
}

void AppInfo::adoptEnvironment()
{
    if (const auto* const info = find()) nameFolders(info->_id, commonId());
}

AppInfo& AppInfo::instance()
{
    auto* const existing = find();
    if (!FN_ASSERT(existing, fn::sites::applicationIsKnown)) {
        throw fn::with(fn::RuntimeException("The application is not known: AppInfo::initialize has not been called"),
            fn::DetailInfo { fn::String(familyVariable) + ": "
                + fn::Environment::get(familyVariable).value_or("not set") + ", " + identityVariable + ": "
                + fn::Environment::get(identityVariable).value_or("not set") });
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
