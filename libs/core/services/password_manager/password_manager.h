#pragma once
#include "base/exceptions.h"
#include "base/export.h"
#include "base/string.h"

namespace core {

/// Keeps secrets of the current user, such as passwords of accounts, each under a group and a key. A '.' in a group leads
/// into a group within a group.
///
/// Several processes can share one store, since no call relies on what an earlier one has read; of changes made at the very same
/// time the last one wins. Used by one thread at a time.
class FN_EXPORT PasswordManager {
public:
    /// The manager of the process, made at the first call and never destroyed: the file "Passwords.prefs" in the folder of
    /// the user's preferences, with secrets that only this user can read. Thread-safe.
    static PasswordManager& instance();

    /// Stores a secret in place of the former one. If it can not be encrypted, throws `fn::RuntimeException`, with a log line, and
    /// the former one stays. Throws what reading and writing the store throws: `fn::FileException`, `fn::DataFormatException`
    /// for a damaged file, which stays as it is, `fn::RangeException` for a group below an entry that is no group, and for names
    /// that can not be stored: "__type__", and names that are not UTF-8.
    virtual void setPassword(std::string_view group, std::string_view key, std::string_view password) = 0;

    /// The secret, which the caller should wipe. `found` tells whether one is stored; a secret that can not be decrypted any more
    /// counts as found, with empty text and a log line. A file that holds no preferences is replaced by the ones last read or set.
    /// Throws `fn::FileException` if it can not be read or replaced, `fn::RangeException` if a tagged value in it has members of
    /// the wrong kind: such a file stays as it is.
    virtual fn::String getPassword(std::string_view group, std::string_view key, bool& found) = 0;

    /// Removes a secret if there is one. Throws like `setPassword()`.
    virtual void removePassword(std::string_view group, std::string_view key) = 0;

    fn::String getPassword(std::string_view group, std::string_view key); ///< The secret, or "" if none is stored.

protected:
    virtual ~PasswordManager();
};

} // namespace core
