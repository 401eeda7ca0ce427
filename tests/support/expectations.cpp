#include "support/expectations.h"
#include "foundation/unhandled_exception.h"
#include <exception>
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <mutex>

namespace test {
namespace {

/// Reports of one kind: collected, or failures of the test.
class Reports {
public:
    explicit Reports(const char* kind) : _kind(kind) { }
    void add(std::string text)
    {
        const std::lock_guard guard(_lock);
        if (_collects)
            _texts.push_back(std::move(text));
        else
            ADD_FAILURE() << _kind << ": " << text;
    }
    void collect(bool collects)
    {
        const std::lock_guard guard(_lock);
        _collects = collects;
        if (collects) _texts.clear();
    }
    std::vector<std::string> texts()
    {
        const std::lock_guard guard(_lock);
        return _texts;
    }

private:
    const char* const _kind;
    std::mutex _lock;
    bool _collects = false;
    std::vector<std::string> _texts;
};

Reports assertions("broken invariant");
Reports unhandled("unhandled exception");

void onAssertion(const fn::AssertionSite& site)
{
    assertions.add(fmt::format("{}:{} {} {}", site.file, site.line, site.function, site.expression));
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

void onUnhandled(std::exception_ptr exception) { unhandled.add(describe(exception)); }

} // namespace

void installFailureHooks()
{
    fn::setAssertionHook(onAssertion);
    fn::setUnhandledExceptionHook(onUnhandled);
}

ExpectAssertions::ExpectAssertions() { assertions.collect(true); }
ExpectAssertions::~ExpectAssertions() { assertions.collect(false); }
std::vector<std::string> ExpectAssertions::reports() const { return assertions.texts(); }

ExpectUnhandled::ExpectUnhandled() { unhandled.collect(true); }
ExpectUnhandled::~ExpectUnhandled() { unhandled.collect(false); }
std::vector<std::string> ExpectUnhandled::messages() const { return unhandled.texts(); }

} // namespace test
