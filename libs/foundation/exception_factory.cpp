#include "foundation/exception_factory.h"
#include "foundation/exceptions.h"
#include <map>
#include <mutex>
#include <string>

namespace fn {
namespace {

struct Table {
    std::mutex lock;
    std::map<std::string, ExceptionFactory::Factory, std::less<>> factories;
};

// Made by the first registration of whichever library comes first, and never destroyed: exceptions outlast statics.
Table& table()
{
    static auto& instance = *new Table;
    return instance;
}

} // namespace

bool ExceptionFactory::_registerException(const char* className, Factory factory)
{
    const std::lock_guard guard(table().lock);
    table().factories.insert_or_assign(className, factory);
    return true;
}

std::unique_ptr<Exception> ExceptionFactory::createException(
    const String& className, const String& message, Exception::StackTrace choice)
{
    Factory factory = nullptr;
    {
        const std::lock_guard guard(table().lock);
        const auto found = table().factories.find(className.view());
        if (found != table().factories.end()) factory = found->second;
    }
    return factory ? factory(message, choice) : std::make_unique<RuntimeException>(message, choice);
}

} // namespace fn
