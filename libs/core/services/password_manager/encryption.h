#pragma once
#include "base/export.h"
#include "base/string.h"

namespace core {

/// How a password manager turns a secret into the text that it stores, and back. This one leaves both as they are: for
/// tests, or for stores that are protected otherwise.
class FN_EXPORT Encryption {
public:
    /// The text to store for `text`. Does not throw for what it can not encrypt: the result is then empty.
    virtual fn::String encrypt(std::string_view text);

    /// The secret that `text` stands for; empty where that fails. Never throws because of what `text` holds.
    virtual fn::String decrypt(std::string_view text);

    virtual ~Encryption();
};

} // namespace core
