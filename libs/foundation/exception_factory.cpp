#include "foundation/exception_factory.h"
#include "foundation/debug.h"
#include "foundation/exceptions.h"
#include "foundation/logging/logging.h"
#include <map>
#include <mutex>
#include <string>

namespace fn {
namespace {

struct Table {
    std::mutex lock;
    struct Entry {
        const std::type_info* type;
        ExceptionFactory::Factory factory;
    };
    std::map<std::string, Entry, std::less<>> entries;
};

// Made by the first registration of whichever library comes first, and never destroyed: exceptions outlast statics.
Table& table()
{
    static auto& instance = *new Table;
    return instance;
}

} // namespace

bool ExceptionFactory::_registerException(const char* className, const std::type_info& type, Factory factory)
{
    const std::type_info* first = nullptr;
    {
        const std::lock_guard guard(table().lock);
        first = table().entries.try_emplace(className, &type, factory).first->second.type;
    }
    if (*first == type) return true;
    static const auto& category = logging::CategoryManager::instance().getCategory("core.exception");
    logging::writeChecked(category, logging::Warning, {}, { "libs/foundation/exception_factory", 0, "" },
        "The exception class name {} is taken: {} will arrive in other processes as {}", className,
        debug::demangleTypeName(type.name()), debug::demangleTypeName(first->name()));
    return true;
}

std::unique_ptr<Exception> ExceptionFactory::createException(
    const String& className, const String& message, Exception::StackTrace choice)
{
    Factory factory = nullptr;
    {
        const std::lock_guard guard(table().lock);
        const auto found = table().entries.find(className.view());
        if (found != table().entries.end()) factory = found->second.factory;
    }
    return factory ? factory(message, choice) : std::make_unique<RuntimeException>(message, choice);
}

} // namespace fn
