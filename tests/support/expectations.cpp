#include "support/expectations.h"
#include "foundation/unhandled_exception.h"
#include <exception>
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <mutex>
#include <optional>

namespace test {
namespace {

/// Reports of one kind: collected, or failures of the test.
struct Reports {
    void add(const std::string& text)
    {
        const std::lock_guard guard(lock);
        if (collected)
            collected->push_back(text);
        else
            ADD_FAILURE() << kind << ": " << text;
    }
    void collect(std::optional<std::vector<std::string>> begin)
    {
        const std::lock_guard guard(lock);
        collected = std::move(begin);
    }
    std::vector<std::string> texts()
    {
        const std::lock_guard guard(lock);
        return *collected;
    }

    const char* kind;
    std::mutex lock = {};
    std::optional<std::vector<std::string>> collected = {};
};

Reports assertions { "broken invariant" };
Reports unhandled { "unhandled exception" };

void onAssertion(const fn::AssertionSite& site)
{
    assertions.add(fmt::format("{}:{} {} {}", site.file, site.line, site.function, site.expression));
}

void onUnhandled(std::exception_ptr exception)
{
    try {
        std::rethrow_exception(exception);
    } catch (const std::exception& e) {
        unhandled.add(e.what());
    } catch (...) {
        unhandled.add("unknown exception");
    }
}

} // namespace

void installFailureHooks()
{
    fn::setAssertionHook(onAssertion);
    fn::setUnhandledExceptionHook(onUnhandled);
}

ExpectAssertions::ExpectAssertions() { assertions.collect(std::vector<std::string>()); }
ExpectAssertions::~ExpectAssertions() { assertions.collect({}); }
std::vector<std::string> ExpectAssertions::reports() const { return assertions.texts(); }

ExpectUnhandled::ExpectUnhandled() { unhandled.collect(std::vector<std::string>()); }
ExpectUnhandled::~ExpectUnhandled() { unhandled.collect({}); }
std::vector<std::string> ExpectUnhandled::messages() const { return unhandled.texts(); }

} // namespace test
