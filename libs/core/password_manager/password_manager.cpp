#include "core/password_manager/password_manager.h"
#include "core/password_manager/password_manager_generic.h"
#include "core/password_manager/windows_encryption.h"
#include "foundation/system/path_manager.h"

namespace core {

PasswordManager& PasswordManager::instance()
{
    static auto& instance = *new PasswordManagerGeneric(std::make_unique<WindowsEncryption>(),
        Preferences(fn::PathManager::instance().getPath(fn::PathManager::PreferencesFolder, "Passwords.prefs", false)));
    return instance;
}

fn::String PasswordManager::getPassword(std::string_view group, std::string_view key)
{
    bool found = false;
    return getPassword(group, key, found);
}

PasswordManager::~PasswordManager() = default;

} // namespace core
