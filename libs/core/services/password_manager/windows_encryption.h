#pragma once
#include "core/services/password_manager/encryption.h"

namespace core {

/// Stores secrets as the Base64 text of the result of `platform::CryptProtectData()`: only the current user can read them, while
/// the user's protection key exists. That function's header tells what this guards against.
///
/// Failures are logged in the category "core.password" and give the empty text. Thread-safe.
class FN_EXPORT WindowsEncryption : public Encryption {
public:
    fn::String encrypt(std::string_view text) override;
    fn::String decrypt(std::string_view text) override;
    ~WindowsEncryption() override;
};

} // namespace core
