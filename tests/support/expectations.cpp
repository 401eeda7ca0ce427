#include "support/expectations.h"
#include "foundation/unhandled_exception.h"
#include <exception>
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <mutex>

namespace test {
namespace {

std::mutex lock;
bool collectAssertions = false;
bool collectUnhandled = false;
std::vector<std::string> assertions;
std::vector<std::string> unhandled;

void onAssertion(const fn::AssertionSite& site)
{
    auto text = fmt::format("{}:{} {} {}", site.file, site.line, site.function, site.expression);
    const std::lock_guard guard(lock);
    if (collectAssertions)
        assertions.push_back(std::move(text));
    else
        ADD_FAILURE() << "broken invariant: " << text;
}

std::string describe(const std::exception_ptr& exception)
{
    try {
        std::rethrow_exception(exception);
    } catch (const std::exception& e) {
        return e.what();
    } catch (...) {
        return "unknown exception";
    }
}

void onUnhandled(std::exception_ptr exception)
{
    auto text = describe(exception);
    const std::lock_guard guard(lock);
    if (collectUnhandled)
        unhandled.push_back(std::move(text));
    else
        ADD_FAILURE() << "unhandled exception: " << text;
}

} // namespace

void installFailureHooks()
{
    fn::setAssertionHook(onAssertion);
    fn::setUnhandledExceptionHook(onUnhandled);
}

ExpectAssertions::ExpectAssertions()
{
    const std::lock_guard guard(lock);
    collectAssertions = true;
    assertions.clear();
}

ExpectAssertions::~ExpectAssertions()
{
    const std::lock_guard guard(lock);
    collectAssertions = false;
}

std::vector<std::string> ExpectAssertions::reports() const
{
    const std::lock_guard guard(lock);
    return assertions;
}

ExpectUnhandled::ExpectUnhandled()
{
    const std::lock_guard guard(lock);
    collectUnhandled = true;
    unhandled.clear();
}

ExpectUnhandled::~ExpectUnhandled()
{
    const std::lock_guard guard(lock);
    collectUnhandled = false;
}

std::vector<std::string> ExpectUnhandled::messages() const
{
    const std::lock_guard guard(lock);
    return unhandled;
}

} // namespace test
