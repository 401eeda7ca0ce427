#pragma once
#include "base/exceptions.h"
#include "base/export.h"
#include "base/string.h"

namespace core {

/// Keeps secrets of the current user, such as passwords of accounts, each under a group and a key. A '.' in a group leads
/// into a group within a group.
///
/// Nothing is kept between two calls that another process could have changed in the meantime, so that several processes
/// share one store; of changes made at the very same time the last one wins. Used by one thread at a time.
class FN_EXPORT PasswordManager {
public:
    /// The manager of the process, made at the first call and never destroyed: the file "Passwords.prefs" in the folder of
    /// the user's preferences, with secrets that only this user can read. Thread-safe.
    static PasswordManager& instance();

    /// Stores a secret in place of the one before. One that can not be encrypted is `fn::RuntimeException`, with a
    /// log line, and the one before stays. Throws what reading and writing the store throws: `fn::FileException`,
    /// `fn::DataFormatException` for a damaged file, which stays as it is, `fn::RangeException` where the group
    /// leads through what is no group, and for names that can not be stored: "__type__", or such that are not
    /// UTF-8.
    virtual void setPassword(std::string_view group, std::string_view key, std::string_view password) = 0;

    /// The secret, the caller's to wipe. `found` tells whether one is stored: one that can not be decrypted any more is
    /// found, with empty text and a log line. A file that is no text of preferences is replaced by what was last read or
    /// set. Throws `fn::FileException` where it can not be read or replaced, `fn::RangeException` where a tagged value in it
    /// has members of the wrong kind: such a file stays as it is.
    virtual fn::String getPassword(std::string_view group, std::string_view key, bool& found) = 0;

    /// Removes a secret if there is one. Throws like `setPassword()`.
    virtual void removePassword(std::string_view group, std::string_view key) = 0;

    fn::String getPassword(std::string_view group, std::string_view key); ///< The secret, or "" if none is stored.

protected:
    virtual ~PasswordManager();
};

} // namespace core
