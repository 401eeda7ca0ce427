// What can break here: a report that throws, ends the process, or reports itself without end.
#include "foundation/assertion.h"
#include "foundation/exception_factory.h"
#include "foundation/exceptions.h"
#include "foundation/logging/logging.h"
#include "foundation/promise.h"
#include "foundation/time/clock.h"
#include "foundation/unhandled_exception.h"
#include "foundation/uv/loop.h"
#include "support/expectations.h"
#include "support/log_capture.h"
#include <gmock/gmock.h>
#include <unistd.h>

namespace {

using fn::ExceptionFactory;
using testing::ElementsAre;
using testing::HasSubstr;

/// A sink that fails in some way of its own.
class BadSink final : public fn::logging::Sink {
public:
    explicit BadSink(std::function<void()> fails) : _fails(std::move(fails))
    {
        fn::logging::CategoryManager::instance().addSink(fn::AutoPtr<Sink>(this));
    }
    void remove() { fn::logging::CategoryManager::instance().removeSink(fn::AutoPtr<Sink>(this)); }
    void logMessage(const fn::logging::Category&, const fn::logging::Message&) override { _fails(); }

private:
    const std::function<void()> _fails;
};

class Hooks : public testing::Test {
protected:
    void TearDown() override { test::installFailureHooks(); }

    const test::LogCapture log { fn::logging::Warning };
    const std::string here = fmt::format("in foundation_errors_tests[{}]: ", getpid());
};

TEST_F(Hooks, LogABrokenInvariantAndGoOn)
{
    fn::setAssertionHook(nullptr);
    int evaluations = 0;
    EXPECT_TRUE(FN_ASSERT(++evaluations == 1, "libs/a", 1, "f", "fine"));
    EXPECT_FALSE(FN_ASSERT(++evaluations == 1, "libs/a", 2, "f", "broken"));
    EXPECT_THAT(log.lines(), ElementsAre("1 core.assertion Assertion failed " + here + "broken (libs/a:2, f)"));

    const auto sink =
        fn::makeAuto<BadSink>([] { (void)FN_ASSERT(false, "libs/a", 3, "g", "within"); }); // Breaks one itself.
    testing::internal::CaptureStderr();
    (void)FN_ASSERT(false, "libs/a", 4, "f", "outer");
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("within"));
    EXPECT_EQ(log.lines().size(), 2u);
    sink->remove();
}

TEST_F(Hooks, SurviveHooksThatThrow)
{
    const test::ExpectUnhandled unhandled;
    fn::setAssertionHook([](const fn::AssertionSite&) { throw std::runtime_error("hook"); });
    EXPECT_FALSE(FN_ASSERT(false, "libs/a", 1, "f", "broken"));
    EXPECT_THAT(unhandled.messages(), ElementsAre("hook"));

    fn::setUnhandledExceptionHook([](std::exception_ptr) { throw 1; });
    const auto sink = fn::makeAuto<BadSink>([] { throw std::runtime_error("sink"); });
    testing::internal::CaptureStderr();
    try {
        throw fn::RangeException("lost");
    } catch (...) {
        fn::unhandledException();
    }
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("hook for unhandled exceptions failed"));
    EXPECT_THAT(
        log.lines(), testing::Contains("1 core.exception Unhandled exception " + here + "RangeException: lost"));
    sink->remove();
}

TEST_F(Hooks, NameEveryKindOfException)
{
    const test::ExpectUnhandled unhandled;
    const std::pair<std::exception_ptr, const char*> rows[] = {
        { std::make_exception_ptr(with(fn::FileException("a"), fn::PathInfo { "/p" })), "FileException: a\nPath: /p" },
        { std::make_exception_ptr(std::out_of_range("b")), "std::out_of_range: b" },
        { std::make_exception_ptr(3), "exception of an unknown type" },
    };
    for (const auto& [exception, expected] : rows) {
        try {
            std::rethrow_exception(exception);
        } catch (...) {
            fn::unhandledException();
            EXPECT_EQ(log.lines().back(), "1 core.exception Unhandled exception " + here + expected);
            fn::logException();
            EXPECT_EQ(log.lines().back(), std::string("1 core.exception ") + expected);
        }
    }
    fn::unhandledException(); // None at all.
    EXPECT_THAT(log.lines().back(), HasSubstr("std::logic_error: no exception is being handled"));
    fn::logException(std::out_of_range("c"));
    EXPECT_EQ(log.lines().back(), "1 core.exception std::out_of_range: c");
}

TEST_F(Hooks, AddTheTraceForThoseWhoWantIt)
{
    const test::LogCapture debugger(fn::logging::Debug);
    fn::logException(fn::RuntimeException("traced"));
    fn::logException(fn::RuntimeException("untraced", fn::Exception::StackTrace::None));
    EXPECT_EQ(log.lines().size(), 2u);
    ASSERT_EQ(debugger.lines().size(), 3u);
    EXPECT_THAT(debugger.lines()[1], HasSubstr("AddTheTraceForThoseWhoWantIt"));
}

TEST_F(Hooks, TellOfPromisesThatFailWhileNobodyLooks)
{
    fn::ManualClock clock;
    auto loop = std::make_unique<fn::uv::Loop>(clock);
    const auto fail = [](const char* text, const char* call = "") {
        auto exception = with(fn::RangeException(text), fn::CallInfo { call });
        return fn::Promise<void>::rejected(std::make_exception_ptr(exception));
    };
    loop->post([&] {
        fail("a", "Greeter.greet");
        fail("left out", "Greeter.greet");
        fail("b", "Greeter.part");
        fn::Promise<void>::rejected(std::make_exception_ptr(fn::EndedException()));
        fail("looked at").then([] {}, [](std::exception_ptr) {});
        fail("c").then([] { FAIL(); });
        loop->post([&] {
            clock.advance(fn::Duration::seconds(1));
            fail("d", "Greeter.greet");
            fn::Promise<void>::rejected({});
            loop->stop();
        });
    });
    loop->run();
    loop->post([kept = fail("goes with its loop", "Greeter.end")] {});
    loop.reset();
    const std::string start = "2 core.promise A promise failed and nobody looked: ";
    EXPECT_THAT(log.lines(),
        ElementsAre(start + "Greeter.greet: RangeException: a", start + "Greeter.part: RangeException: b",
            start + "RangeException: c", start + "Greeter.greet: RangeException: d (and 1 more before)",
            start + "std::logic_error: rejected with an empty exception pointer"));
}

TEST_F(Hooks, TellOfAnExceptionClassWhoseNameIsTaken)
{
    const ExceptionFactory::Factory factory = [](const fn::String&, auto) { return std::unique_ptr<fn::Exception>(); };
    ExceptionFactory::_registerException("RangeException", typeid(fn::RangeException), factory); // Known already.
    ExceptionFactory::_registerException("RangeException", typeid(BadSink), factory);
    EXPECT_THAT(log.lines(), ElementsAre(HasSubstr("The exception class name RangeException is")));
    EXPECT_TRUE(dynamic_cast<fn::RangeException*>(ExceptionFactory::createException("RangeException", "a").get()));
}

} // namespace
