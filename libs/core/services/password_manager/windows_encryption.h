#pragma once
#include "core/services/password_manager/encryption.h"

namespace core {

/// Secrets as Base64 text of what `platform::CryptProtectData()` makes of them: only the current user can read them again,
/// for as long as the user's protection key exists. What that guards against, and what not, is said there.
///
/// Failures are logged in the category "core.password" and give the empty text. Thread-safe.
class FN_EXPORT WindowsEncryption : public Encryption {
public:
    fn::String encrypt(std::string_view text) override;
    fn::String decrypt(std::string_view text) override;
    ~WindowsEncryption() override;
};

} // namespace core
