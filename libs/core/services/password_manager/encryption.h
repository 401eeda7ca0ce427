#pragma once
#include "base/export.h"
#include "base/string.h"

namespace core {

/// Turns a secret into the text that a password manager stores, and back. This base class changes nothing: it is for tests, and
/// for stores that are protected in another way.
class FN_EXPORT Encryption {
public:
    /// The text to store for `text`; empty if that can not be encrypted, without an exception.
    virtual fn::String encrypt(std::string_view text);

    /// The secret that `text` stands for; empty if it can not be decrypted, without an exception.
    virtual fn::String decrypt(std::string_view text);

    virtual ~Encryption();
};

} // namespace core
