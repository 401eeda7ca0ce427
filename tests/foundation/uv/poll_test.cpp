// What can break here: a watch that ends, or whose loop ends, while it is being called; one that an error stops for good.
#include "foundation/exceptions.h"
#include "foundation/uv/poll.h"
#include "support/expectations.h"
#include "support/run_until.h"
#include "support/temporary_folder.h"
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

namespace {

using fn::uv::Loop;
using fn::uv::Poll;

struct Pipe : testing::Test {
    Pipe() { EXPECT_EQ(::pipe2(ends, O_CLOEXEC), 0); }
    ~Pipe() override
    {
        ::close(ends[0]);
        if (ends[1] >= 0) ::close(ends[1]);
    }
    void write(int bytes = 1) { EXPECT_EQ(::write(ends[1], "abc", bytes), bytes); }
    bool read()
    {
        char byte;
        return ::read(ends[0], &byte, 1) == 1;
    }

    int ends[2];
    std::unique_ptr<Loop> loop = std::make_unique<Loop>();
};

TEST_F(Pipe, IsAnnouncedUntilAllIsReadAlsoInARunInsideOfTheCallback)
{
    int calls = 0;
    const Poll poll(*loop, ends[0], [&] {
        if (++calls == 1) test::runTurns(*loop, 2);
        EXPECT_TRUE(read());
    });
    test::runTurns(*loop, 5);
    EXPECT_EQ(calls, 0);
    write(3);
    test::runTurns(*loop, 20);
    EXPECT_EQ(calls, 3);
}

TEST_F(Pipe, IsNotWatchedAnyMoreOnceTheWatchEndsInItsOwnCallbackWhichMayThrow)
{
    const test::ExpectUnhandled unhandled;
    const auto token = std::make_shared<int>();
    std::optional<Poll> poll;
    poll.emplace(*loop, ends[0], [&, token] {
        poll.reset();
        EXPECT_EQ(token.use_count(), 2); // The callback lives while it runs.
        throw std::runtime_error("once");
    });
    write();
    EXPECT_TRUE(test::runUntil(*loop, [&] { return !poll; }));
    test::runTurns(*loop, 5);
    EXPECT_EQ(unhandled.messages(), std::vector<std::string> { "once" });
    EXPECT_EQ(token.use_count(), 1);
}

TEST_F(Pipe, MayBeWatchedBeyondTheLoop)
{
    const auto token = std::make_shared<int>();
    const Poll poll(*loop, ends[0], [token] { FAIL(); });
    loop.reset();
    EXPECT_EQ(token.use_count(), 1);
}

TEST_F(Pipe, WithAnErrorIsAnnouncedAgainAndAgain)
{
    // The writing end of a pipe that nobody can read has an error for good.
    int calls = 0;
    int other[2];
    ASSERT_EQ(::pipe2(other, O_CLOEXEC), 0);
    ::close(other[0]);
    {
        const Poll poll(*loop, other[1], [&] { ++calls; });
        EXPECT_TRUE(test::runUntil(*loop, [&] { return calls == 3; }));
    }
    ::close(other[1]);
}

TEST_F(Pipe, IsRefusedWhereItIsAFile)
{
    const test::TemporaryFolder folder;
    const int file = ::open(folder.file("file").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    EXPECT_THROW(Poll(*loop, file, [] {}), fn::IOException);
    EXPECT_THROW(Poll(*loop, -1, [] {}), fn::IOException);
    ::close(file);
    test::runTurns(*loop);
}

} // namespace
