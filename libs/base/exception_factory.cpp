#include "base/exception_factory.h"
#include "base/exceptions.h"
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace fn {
namespace {

struct Table {
    std::mutex lock;
    struct Entry {
        const std::type_info* type;
        ExceptionFactory::Factory factory;
    };
    std::map<std::string, Entry, std::less<>> entries;
    ExceptionFactory::Reporter reporter = nullptr;
    struct Taken {
        const char* className;
        const std::type_info* type;
        const std::type_info* first;
    };
    std::vector<Taken> unreported; // Found before a reporter was set.
};

// Made by the first registration, whichever library it comes from, and never destroyed: exceptions outlast static variables.
Table& table()
{
    static auto& instance = *new Table;
    return instance;
}

} // namespace

bool ExceptionFactory::_registerException(const char* className, const std::type_info& type, Factory factory)
{
    Reporter reporter = nullptr;
    const std::type_info* first = nullptr;
    {
        const std::lock_guard guard(table().lock);
        first = table().entries.try_emplace(className, &type, factory).first->second.type;
        if (*first == type) return true;
        reporter = table().reporter;
        if (!reporter) table().unreported.push_back({ className, &type, first });
    }
    if (reporter) reporter(className, type, *first);
    return true;
}

void ExceptionFactory::setReporter(Reporter reporter)
{
    std::vector<Table::Taken> unreported;
    {
        const std::lock_guard guard(table().lock);
        table().reporter = reporter;
        unreported.swap(table().unreported);
    }
    for (const auto& taken : unreported) reporter(taken.className, *taken.type, *taken.first);
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
