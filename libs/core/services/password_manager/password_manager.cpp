#include "core/services/password_manager/password_manager.h"
#include "core/services/password_manager/password_manager_generic.h"
#include "core/services/password_manager/windows_encryption.h"
#include "foundation/system/path_manager.h"
#include "foundation/system/process_local.h"

namespace core {

PasswordManager& PasswordManager::instance()
{
    static fn::ProcessLocal<PasswordManagerGeneric> instance([] {
        const auto path =
            fn::PathManager::instance().getPath(fn::PathManager::PreferencesFolder, "Passwords.prefs", false);
        return new PasswordManagerGeneric(std::make_unique<WindowsEncryption>(), Preferences(path));
    });
    return instance.get();
}

fn::String PasswordManager::getPassword(std::string_view group, std::string_view key)
{
    bool found = false;
    return getPassword(group, key, found);
}

PasswordManager::~PasswordManager() = default;

} // namespace core
