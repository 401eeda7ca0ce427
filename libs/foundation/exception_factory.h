#pragma once
#include "foundation/exception.h"
#include "foundation/exceptions.h"
#include <memory>
#include <typeinfo>

namespace fn {

/// Rebuilds exceptions of registered classes from their names, so that an error can cross processes. Thread-safe.
class FN_EXPORT ExceptionFactory {
public:
    using Factory = std::unique_ptr<Exception> (*)(const String& message, Exception::StackTrace choice);

    /// Registers a class under its name (without namespace). The first type of a name keeps it: another one is told in a log
    /// line at priority 2, category "core.exception", and arrives elsewhere as the first one. Returns true, for use in
    /// an initialiser that runs when the library is loaded; no order among libraries is assumed.
    static bool _registerException(const char* className, const std::type_info& type, Factory factory);

    /// An exception of that class; of `fn::RuntimeException` where the name is unknown.
    static std::unique_ptr<Exception> createException(
        const String& className, const String& message, Exception::StackTrace choice = Exception::StackTrace::Capture);
};

} // namespace fn
