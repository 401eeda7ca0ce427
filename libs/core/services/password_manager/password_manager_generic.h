#pragma once
#include "core/services/password_manager/encryption.h"
#include "core/services/password_manager/password_manager.h"
#include "core/services/preferences.h"
#include <memory>

namespace core {

/// Keeps the secrets, encrypted, in a preferences file: the map "passwords" has a map for each group. The file is read
/// again before each operation and replaced as a whole by each change.
class FN_EXPORT PasswordManagerGeneric : public PasswordManager {
public:
    /// Reads nothing yet.
    PasswordManagerGeneric(std::unique_ptr<Encryption> encryption, Preferences preferences);
    ~PasswordManagerGeneric() override;

    void setPassword(std::string_view group, std::string_view key, std::string_view password) override;
    fn::String getPassword(std::string_view group, std::string_view key, bool& found) override;
    void removePassword(std::string_view group, std::string_view key) override;
    using PasswordManager::getPassword;

private:
    fn::String encrypted(std::string_view password);

    const std::unique_ptr<Encryption> _encryption;
    Preferences _preferences;
};

} // namespace core
