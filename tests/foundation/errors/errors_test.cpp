// What can break here: a detail lost or shared, a class or trace that is another's; a report that throws or reports itself.
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
#include <gtest/gtest.h>
#include <thread>
#include <typeindex>
#include <unistd.h>

namespace {

using fn::Exception;
using testing::ElementsAre;
using testing::HasSubstr;

TEST(Exception, SaysItsMessageAndThenItsDetails)
{
    const auto full = with(fn::FileException("Could not read the file"), fn::PathInfo { "/a/b" }, fn::ErrnoInfo { 2 },
        fn::DetailInfo { "Type: x" }, fn::UVErrnoInfo { -32 }, fn::WinErrorInfo { 5 }, fn::ErrorCodeInfo { -7 });
    EXPECT_STREQ(full.what(),
        "Could not read the file\nType: x\nPath: /a/b\nErrno: 2 (No such file or directory)\n"
        "UV errno: -32 (Broken pipe)\nWindows error: 0x00000005\nError code: -7");
    EXPECT_EQ(full.message(), "Could not read the file");
    EXPECT_STREQ(fn::RuntimeException().what(), "");
    // libuv has numbers of its own, which are none of the system's.
    EXPECT_STREQ(with(fn::IOException("eof"), fn::UVErrnoInfo { -4095 }).what(), "eof\nUV errno: -4095");
}

TEST(Exception, SharesDetailsWithItsCopiesUntilOneChanges)
{
    const auto original = with(fn::RuntimeException("a"), fn::ErrnoInfo { 2 });
    auto copy = original;
    EXPECT_EQ(copy.what(), original.what()) << "the very same text";
    for (const auto* detail : { "more", "other" }) { // The text is made anew.
        copy.attach(fn::ErrnoInfo { 13 }).attach(fn::DetailInfo { detail });
        EXPECT_EQ(copy.what(), fmt::format("a\n{}\nErrno: 13 (Permission denied)", detail));
    }
    EXPECT_STREQ(original.what(), "a\nErrno: 2 (No such file or directory)");
}

TEST(Exception, CrossesProcessesAsTheSameClass)
{
    const std::pair<const char*, std::type_index> rows[] = { { "RangeException", typeid(fn::RangeException) },
        { "OperationTimedOutException", typeid(fn::OperationTimedOutException) },
        { "Exception", typeid(fn::Exception) }, { "NoSuchException", typeid(fn::RuntimeException) },
        { "", typeid(fn::RuntimeException) } };
    for (const auto& [name, type] : rows) {
        const auto rebuilt = fn::ExceptionFactory::createException(name, "message", Exception::StackTrace::None);
        EXPECT_TRUE(rebuilt->stackTrace().empty());
        try {
            rebuilt->attach(fn::DetailInfo { "detail" }).raise();
        } catch (const Exception& raised) {
            EXPECT_TRUE(std::type_index(typeid(raised)) == type) << name;
            EXPECT_STREQ(raised.what(), "message\ndetail");
        }
    }
}

// Hidden from everybody but the symbol table.
[[gnu::noinline]] void throwDeeply(int depth)
{
    if (depth > 0)
        throwDeeply(depth - 1);
    else
        throw fn::RuntimeException("deep");
    asm volatile(""); // No tail call.
}

TEST(StackTrace, NamesHiddenFunctionsWithTheirModuleAndOffset)
{
    try {
        throwDeeply(3);
        FAIL();
    } catch (const fn::RuntimeException& exception) {
        const auto trace = exception.stackTrace().resolve();
        EXPECT_TRUE(trace.frames.front().symbolName.contains("RuntimeException"));
        std::vector<std::uint32_t> ours;
        for (const auto& frame : trace.frames) {
            if (!frame.symbolName.contains("throwDeeply(int)")) continue;
            ours.push_back(frame.address);
            EXPECT_TRUE(frame.moduleName.endsWith("errors_tests")) << frame.moduleName.view();
            EXPECT_TRUE(frame.fileName.endsWith("errors_test.cpp")) << frame.fileName.view();
            EXPECT_GT(frame.fileLine, 0);
        }
        ASSERT_EQ(ours.size(), 4u);
        EXPECT_NE(ours[0], ours[1]) << "the throw and the call";
        EXPECT_EQ(ours[1], ours[2]);
        EXPECT_LT(ours[0] - ours[1] + 0x1000, 0x2000u) << "offsets, in one function";
    }
}

TEST(Exception, MayBeReadByManyThreadsAtOnce)
{
    const auto shared = with(fn::RuntimeException("shared"), fn::ErrnoInfo { 2 });
    std::vector<std::jthread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([copy = shared, &shared] {
            EXPECT_EQ(std::string(copy.what()), "shared\nErrno: 2 (No such file or directory)");
            EXPECT_EQ(copy.what(), shared.what());
            EXPECT_FALSE(copy.stackTrace().resolve().frames.empty());
            EXPECT_EQ(fn::ExceptionFactory::createException("RangeException", "a")->className(), "RangeException");
        });
    }
}

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

struct Hooks : testing::Test {
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

TEST_F(Hooks, NameEveryKindOfExceptionWithTheTraceForThoseWhoWantIt)
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

    const test::LogCapture debugger(fn::logging::Debug);
    fn::logException(fn::RuntimeException("traced"));
    ASSERT_EQ(debugger.lines().size(), 2u);
    EXPECT_THAT(debugger.lines()[1], HasSubstr("WithTheTraceForThoseWhoWantIt"));
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

} // namespace
