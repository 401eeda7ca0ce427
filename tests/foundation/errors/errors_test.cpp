// What can break here: a detail lost or shared, a class that is another's; a failure that nobody hears of, or hears of without end.
#include "base/exceptions.h"
#include "foundation/logging/logging.h"
#include "foundation/promise.h"
#include "foundation/time/clock.h"
#include "foundation/unhandled_exception.h"
#include "foundation/uv/loop.h"
#include "support/log_capture.h"
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using fn::Exception;
using testing::ElementsAre;
using testing::HasSubstr;

TEST(Exception, SaysItsMessageAndThenItsDetailsWhichCopiesShareUntilOneChanges)
{
    const auto original =
        with(fn::FileException("Could not read the file"), fn::PathInfo { "/a/b" }, fn::ErrnoInfo { 2 },
            fn::DetailInfo { "Type: x" }, fn::UVErrnoInfo { -32 }, fn::WinErrorInfo { 5 }, fn::ErrorCodeInfo { -7 });
    const std::string text = "Could not read the file\nType: x\nPath: /a/b\nErrno: 2 (No such file or directory)\n"
                             "UV errno: -32 (Broken pipe)\nWindows error: 0x00000005\nError code: -7";
    auto copy = original;
    EXPECT_EQ(copy.what(), original.what()) << "the very same text";
    for (const auto* detail : { "more", "other" }) { // The text is made anew.
        copy.attach(fn::UVErrnoInfo { -3000 }).attach(fn::DetailInfo { detail });
        EXPECT_THAT(copy.what(), HasSubstr(detail));
    }
    EXPECT_THAT(copy.what(), HasSubstr("UV errno: -3000\n"))
        << "a number of libuv's own, which is none of the system's";
    EXPECT_EQ(original.what(), text);
    EXPECT_EQ(original.message(), "Could not read the file");
}

TEST(UnhandledException, TellsOfPromisesThatFailWhileNobodyLooks)
{
    const test::LogCapture log { fn::logging::Warning };
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
            fail("a new place", "Greeter.new");
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
            start + "RangeException: c", start + "Greeter.new: RangeException: a new place",
            start + "Greeter.greet: RangeException: d (and 1 more before)",
            start + "std::logic_error: rejected with an empty exception pointer"));
}

} // namespace
