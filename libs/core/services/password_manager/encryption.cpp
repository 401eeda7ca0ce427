#include "core/services/password_manager/encryption.h"

namespace core {

fn::String Encryption::encrypt(std::string_view text) { return text; }

fn::String Encryption::decrypt(std::string_view text) { return text; }

Encryption::~Encryption() = default;

} // namespace core
