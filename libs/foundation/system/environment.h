#pragma once
#include "base/exceptions.h"
#include "base/string.h"
#include <optional>

namespace fn {

/// The variables and the user that this process runs with. These calls exclude each other; code that calls the C
/// library directly is not held off, so set variables before starting threads. A name that is empty or holds '=' or
/// NUL: `fn::IOException`.
class FN_EXPORT Environment {
public:
    Environment() = delete;

    static std::optional<String> get(const String& name);
    static void set(const String& name, const String& value); ///< Processes started later inherit it.
    static void unset(const String& name);

    /// Login name of the effective user; the decimal user id where the system knows no name.
    static String userName();
};

} // namespace fn
