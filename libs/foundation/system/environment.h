#pragma once
#include "base/exceptions.h"
#include "base/string.h"
#include <optional>

namespace fn {

/// The variables and the user that this process runs with. These calls exclude each other, but not code that calls the C library
/// directly, so set variables before starting threads. `set()` and `unset()` throw `fn::IOException` for a name that is empty or
/// holds '=' or NUL, or for a value that holds NUL.
class FN_EXPORT Environment {
public:
    Environment() = delete;

    static std::optional<String> get(const String& name); ///< None where the variable is not set.
    static void set(const String& name, const String& value); ///< Processes started later inherit it.
    static void unset(const String& name); ///< A variable that is not set is no error.

    /// The login name of the effective user; the decimal user id if the system knows no name.
    static String userName();
};

} // namespace fn
