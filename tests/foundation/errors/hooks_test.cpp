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
#include <gmock/gmock.h>
#include <unistd.h>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

// Collects what is logged at the priorities up to `threshold`, and calls `onMessage`.
class Collector final : public fn::logging::Sink {
public:
    explicit Collector(int threshold) : _threshold(threshold)
    {
        fn::logging::CategoryManager::instance().addSink(fn::AutoPtr<Sink>(this));
    }
    void remove() { fn::logging::CategoryManager::instance().removeSink(fn::AutoPtr<Sink>(this)); }

    int threshold(const fn::logging::Category&) const override { return _threshold; }
    void logMessage(const fn::logging::Category& category, const fn::logging::Message& message) override
    {
        lines.push_back(fmt::format("{} {} {}", category.name(), message.priority, message.text));
        if (onMessage) onMessage();
    }

    std::vector<std::string> lines;
    std::function<void()> onMessage;

private:
    const int _threshold;
};

class Hooks : public testing::Test {
protected:
    void TearDown() override
    {
        collector->remove();
        test::installFailureHooks();
    }

    fn::AutoPtr<Collector> collector = fn::makeAuto<Collector>(fn::logging::Warning);
    const std::string here = fmt::format("in foundation_errors_tests[{}]: ", getpid());
};

TEST_F(Hooks, LogABrokenInvariantAndGoOn)
{
    fn::setAssertionHook(nullptr);
    int evaluations = 0;
    EXPECT_TRUE(FN_ASSERT(++evaluations == 1, "libs/a", 1, "f", "fine"));
    EXPECT_FALSE(FN_ASSERT(++evaluations == 1, "libs/a", 2, "f", "broken"));
    EXPECT_THAT(collector->lines, ElementsAre("core.assertion 1 Assertion failed " + here + "broken (libs/a:2, f)"));

    // A sink that breaks an invariant itself.
    collector->onMessage = [] { (void)FN_ASSERT(false, "libs/a", 3, "g", "within"); };
    testing::internal::CaptureStderr();
    (void)FN_ASSERT(false, "libs/a", 4, "f", "outer");
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("within"));
    EXPECT_EQ(collector->lines.size(), 2u);
}

TEST_F(Hooks, SurviveHooksThatThrow)
{
    const test::ExpectUnhandled unhandled;
    fn::setAssertionHook([](const fn::AssertionSite&) { throw std::runtime_error("hook"); });
    EXPECT_FALSE(FN_ASSERT(false, "libs/a", 1, "f", "broken"));
    EXPECT_THAT(unhandled.messages(), ElementsAre("hook"));

    fn::setUnhandledExceptionHook([](std::exception_ptr) { throw 1; });
    collector->onMessage = [] { throw std::runtime_error("sink"); };
    testing::internal::CaptureStderr();
    try {
        throw fn::RangeException("lost");
    } catch (...) {
        fn::unhandledException();
    }
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("hook for unhandled exceptions failed"));
    EXPECT_THAT(
        collector->lines, testing::Contains("core.exception 1 Unhandled exception " + here + "RangeException: lost"));
}

TEST_F(Hooks, NameEveryKindOfException)
{
    const test::ExpectUnhandled unhandled;
    const auto report = [](auto exception) {
        try {
            throw exception;
        } catch (...) {
            fn::unhandledException();
            fn::logException();
        }
    };
    report(with(fn::FileException("a"), fn::PathInfo { "/p" }));
    report(std::out_of_range("b"));
    report(3);
    fn::unhandledException(); // None at all.
    fn::logException(std::out_of_range("c"));
    const auto unhandledText = "core.exception 1 Unhandled exception " + here;
    EXPECT_THAT(collector->lines,
        ElementsAre(unhandledText + "FileException: a\nPath: /p", "core.exception 1 FileException: a\nPath: /p",
            unhandledText + "std::out_of_range: b", "core.exception 1 std::out_of_range: b",
            unhandledText + "exception of an unknown type", "core.exception 1 exception of an unknown type",
            unhandledText + "std::logic_error: no exception is being handled",
            "core.exception 1 std::out_of_range: c"));
}

TEST_F(Hooks, AddTheTraceForThoseWhoWantIt)
{
    const auto debugger = fn::makeAuto<Collector>(fn::logging::Debug);
    fn::logException(fn::RuntimeException("traced"));
    fn::logException(fn::RuntimeException("untraced", fn::Exception::StackTrace::None));
    debugger->remove();
    EXPECT_EQ(collector->lines.size(), 2u);
    ASSERT_EQ(debugger->lines.size(), 3u);
    EXPECT_THAT(debugger->lines[1], HasSubstr("AddTheTraceForThoseWhoWantIt"));
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
    const std::string start = "core.promise 2 A promise failed and nobody looked: ";
    EXPECT_THAT(collector->lines,
        ElementsAre(start + "Greeter.greet: RangeException: a", start + "Greeter.part: RangeException: b",
            start + "RangeException: c", start + "Greeter.greet: RangeException: d (and 1 more before)",
            start + "std::logic_error: rejected with an empty exception pointer"));
}

TEST_F(Hooks, TellOfAnExceptionClassWhoseNameIsTaken)
{
    using fn::ExceptionFactory;
    const ExceptionFactory::Factory factory = [](const fn::String&, auto) { return std::unique_ptr<fn::Exception>(); };
    ExceptionFactory::_registerException("RangeException", typeid(fn::RangeException), factory); // Known already.
    ExceptionFactory::_registerException("RangeException", typeid(Collector), factory);
    EXPECT_EQ(collector->lines.size(), 1u);
    EXPECT_THAT(
        collector->lines[0], testing::StartsWith("core.exception 2 The exception class name RangeException is"));
    EXPECT_TRUE(dynamic_cast<fn::RangeException*>(ExceptionFactory::createException("RangeException", "a").get()));
}

} // namespace
