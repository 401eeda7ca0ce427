// What can break here: a detail lost, shared where it was changed, or unreadable in another library; a class that is
// another after its way through a process; a trace that names the wrong code.
#include "foundation/exception_factory.h"
#include "foundation/exceptions.h"
#include <filesystem>
#include <gtest/gtest.h>
#include <thread>
#include <typeindex>
#include <unistd.h>

namespace {

using fn::Exception;

TEST(Exception, SaysItsMessageAndThenItsDetails)
{
    const auto full = with(fn::FileException("Could not read the file"), fn::PathInfo { "/a/b" }, fn::ErrnoInfo { 2 },
        fn::DetailInfo { "Type: x" }, fn::UVErrnoInfo { -32 }, fn::WinErrorInfo { 5 }, fn::ErrorCodeInfo { -7 });
    EXPECT_STREQ(full.what(),
        "Could not read the file\nType: x\nPath: /a/b\nErrno: 2 (No such file or directory)\n"
        "UV errno: -32 (Broken pipe)\nWindows error: 0x00000005\nError code: -7");
    EXPECT_EQ(full.message(), "Could not read the file");
    EXPECT_STREQ(fn::RuntimeException("plain").what(), "plain");
    EXPECT_STREQ(fn::RuntimeException().what(), "");
    // libuv has numbers of its own, which are none of the system's.
    EXPECT_STREQ(with(fn::IOException("eof"), fn::UVErrnoInfo { -4095 }).what(), "eof\nUV errno: -4095");
}

TEST(Exception, SharesDetailsWithItsCopiesUntilOneChanges)
{
    const auto original = with(fn::RuntimeException("a"), fn::ErrnoInfo { 2 });
    auto copy = original;
    EXPECT_EQ(copy.what(), original.what()) << "the very same text";
    copy.attach(fn::ErrnoInfo { 13 }).attach(fn::DetailInfo { "more" });
    EXPECT_STREQ(original.what(), "a\nErrno: 2 (No such file or directory)");
    EXPECT_STREQ(copy.what(), "a\nmore\nErrno: 13 (Permission denied)");
    copy.attach(fn::DetailInfo { "other" });
    EXPECT_STREQ(copy.what(), "a\nother\nErrno: 13 (Permission denied)") << "made anew";
}

TEST(Exception, CrossesProcessesAsTheSameClass)
{
    for (const auto& [name, type] : std::map<std::string, std::type_index> {
             { "RangeException", typeid(fn::RangeException) },
             { "FileException", typeid(fn::FileException) },
             { "OperationTimedOutException", typeid(fn::OperationTimedOutException) },
             { "Exception", typeid(fn::Exception) },
             { "NoSuchException", typeid(fn::RuntimeException) },
             { "", typeid(fn::RuntimeException) },
         }) {
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
        std::vector<fn::ResolvedFrame> ours;
        for (const auto& frame : trace.frames) {
            if (frame.symbolName.contains("throwDeeply(int)")) ours.push_back(frame);
        }
        ASSERT_EQ(ours.size(), 4u);
        for (const auto& frame : ours) {
            EXPECT_TRUE(frame.moduleName.endsWith("errors_tests")) << frame.moduleName.view();
            EXPECT_TRUE(frame.fileName.endsWith("exception_test.cpp")) << frame.fileName.view();
            EXPECT_GT(frame.fileLine, 0);
        }
        EXPECT_NE(ours[0].address, ours[1].address) << "the throw and the call";
        EXPECT_EQ(ours[1].address, ours[2].address);
        EXPECT_LT(ours[0].address - ours[1].address + 0x1000, 0x2000u) << "offsets, in one function";
        EXPECT_TRUE(trace.frames.front().symbolName.contains("RuntimeException"));
        auto copy = exception;
        copy.removeStackTrace();
        EXPECT_TRUE(copy.stackTrace().empty());
        EXPECT_FALSE(exception.stackTrace().empty());
    }
}

TEST(StackTrace, LeavesNoFileOpen)
{
    EXPECT_FALSE(fn::RuntimeException().stackTrace().resolve().frames.empty());
    for (int descriptor = STDERR_FILENO + 1; descriptor < 64; ++descriptor) {
        std::error_code problem;
        const auto target =
            std::filesystem::read_symlink(fmt::format("/proc/self/fd/{}", descriptor), problem).string();
        const bool isModule = target.contains("errors_tests") || target.contains(".so");
        EXPECT_FALSE(isModule) << target;
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

} // namespace
