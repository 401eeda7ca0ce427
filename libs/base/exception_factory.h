#pragma once
#include "base/exception.h"
#include "base/exceptions.h"
#include <memory>
#include <typeinfo>

namespace fn {

/// Rebuilds exceptions of registered classes from their names, so that an error can cross processes. Thread-safe.
class FN_EXPORT ExceptionFactory {
public:
    /// Makes one of a registered class.
    using Factory = std::unique_ptr<Exception> (*)(const String& message, Exception::StackTrace choice);

    /// Registers a class under its name (without namespace). The first class of a name keeps the name: a second class is told to the
    /// reporter, and its exceptions arrive in other processes as exceptions of the first class. Returns true, for an initialiser
    /// that runs when the library is loaded; libraries are loaded in any order.
    static bool _registerException(const char* className, const std::type_info& type, Factory factory);

    /// An exception of the class with that name; of `fn::RuntimeException` if the name is unknown.
    static std::unique_ptr<Exception> createException(
        const String& className, const String& message, Exception::StackTrace choice = Exception::StackTrace::Capture);

    /// Called for each class whose name is taken already, also for classes registered before the reporter was set. The layer that
    /// logs sets the reporter.
    using Reporter = void (*)(const char* className, const std::type_info& type, const std::type_info& first);
    /// Tells who hears of taken names: also at once of those that are taken already.
    static void setReporter(Reporter reporter);
};

} // namespace fn
