#pragma once
#include "foundation/exception.h"
#include "foundation/exceptions.h"
#include <memory>

namespace fn {

/// Rebuilds exceptions of registered classes from their names, so that an error can cross processes. Thread-safe.
class FN_EXPORT ExceptionFactory {
public:
    using Factory = std::unique_ptr<Exception> (*)(const String& message, Exception::StackTrace choice);

    /// Registers a class under its name (without namespace), replacing an earlier one. Returns true, for use in an
    /// initialiser that runs when the library is loaded; no order among libraries is assumed.
    static bool _registerException(const char* className, Factory factory);

    /// An exception of that class; of `fn::RuntimeException` where the name is unknown.
    static std::unique_ptr<Exception> createException(
        const String& className, const String& message, Exception::StackTrace choice = Exception::StackTrace::Capture);
};

} // namespace fn
