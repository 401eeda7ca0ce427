// What can break here: a task lost, doubled or out of order; a loop that sleeps while work waits, or never ends; I/O that
// tasks keep from its turn; an object freed late, or never, when the loop goes.
#include "pipe_pair.h"
#include "support/expectations.h"
#include <gmock/gmock.h>
#include <random>
#include <thread>

namespace {

using fn::Duration;
using fn::RunLoop;
using fn::uv::Loop;
using test::runUntil;
using testing::ElementsAre;

/// Tasks that post others and run the loop again, while threads post.
class Tasks {
public:
    explicit Tasks(unsigned seed) : _random(seed) { }

    void run()
    {
        std::vector<std::jthread> threads;
        for (std::size_t thread = 0; thread < threadCount; ++thread) {
            threads.emplace_back([this, thread] {
                for (int i = 0; i < each; ++i) {
                    _loop.post([this, thread, i] {
                        EXPECT_EQ(_nextOfThread[thread]++, i);
                        post();
                        endsOne();
                    });
                }
            });
        }
        post();
        _loop.run();
        EXPECT_EQ(_nextRun, _nextPosted);
        EXPECT_EQ(RunLoop::currentLoop(), nullptr);
    }

private:
    static constexpr std::size_t threadCount = 3;
    static constexpr int each = 300;

    void post()
    {
        ++_unended;
        _loop.post([this, number = _nextPosted++] {
            EXPECT_EQ(number, _nextRun++);
            if (_random() % 2 && _nextPosted < 10'000) post();
            if (_random() % 50 == 0) runAgain();
            endsOne();
            if (number == 10) throw std::runtime_error("The next task runs all the same.");
        });
    }

    void runAgain()
    {
        if (_depth > 3) return;
        ++_depth;
        _loop.post([this, depth = _depth] { keepStopping(depth); });
        _loop.run();
        EXPECT_EQ(RunLoop::currentLoop(), &_loop);
        --_depth;
    }

    // Until the run of that depth has ended: a stop ends the innermost one, and two at once are one.
    void keepStopping(int depth)
    {
        if (_depth < depth) return;
        _loop.stop();
        _loop.post([this, depth] { keepStopping(depth); });
    }

    void endsOne()
    {
        if (--_unended == 0) keepStopping(0);
    }

    std::mt19937 _random;
    Loop _loop;
    std::vector<int> _nextOfThread = std::vector<int>(threadCount, 0);
    int _nextPosted = 0;
    int _nextRun = 0;
    int _depth = 0;
    std::size_t _unended = threadCount * each;
};

TEST(Loop, RunsEachTaskOnceInTheOrderOfItsThreadAlsoWhereTasksRunItAgain)
{
    for (unsigned seed = 0; seed < 20 && !testing::Test::HasFailure(); ++seed) {
        SCOPED_TRACE(seed);
        const test::ExpectUnhandled expected;
        Tasks(seed).run();
        EXPECT_EQ(expected.messages().size(), 1U);
    }
}

TEST(Loop, ATurnRunsTheTasksThatWerePresentAtItsStartAfterItsInput)
{
    Loop loop;
    test::PipeAndSocket pair(loop);
    std::string order;
    pair.pipe->readStart([&](std::ptrdiff_t, const std::uint8_t*) {
        order += "i";
        loop.post([&] { order += "p"; });
    });
    pair.send("x");
    loop.post([&] {
        order += "a";
        loop.post([&] { order += "c"; });
    });
    loop.post([&] { order += "b"; });
    test::runTurns(loop);
    EXPECT_EQ(order, "iabpc");
}

TEST(Loop, ATaskOrTimerThatAlwaysComesBackNeitherBlocksNorStarvesInputAndTimers)
{
    for (const bool isTimer : { false, true }) {
        Loop loop;
        test::PipeAndSocket pair(loop);
        test::Inbox inbox;
        inbox.readFrom(*pair.pipe);
        int turns = 0;
        std::function<void()> again = [&] {
            ++turns;
            if (isTimer)
                loop.schedule(Duration(), [&] { again(); }).detach();
            else
                loop.post([&] { again(); });
        };
        again();
        bool fired = false;
        const auto timer = loop.schedule(Duration::milliseconds(1), [&] { fired = true; });
        pair.send("x");
        EXPECT_TRUE(runUntil(loop, [&] { return fired && inbox.text == "x" && turns > 10; })) << isTimer;
    }
}

TEST(Loop, ItsEndFreesTasksInRoundsAndRunsDeletionsButNothingElse)
{
    const test::ExpectAssertions assertions;
    auto loop = std::make_unique<Loop>();
    std::string freed;
    struct Poster {
        Loop& loop;
        std::string& freed;
        int depth;
        ~Poster()
        {
            freed += std::to_string(depth);
            if (depth == 0) return;
            auto next = std::make_unique<Poster>(loop, freed, depth - 1);
            loop.post([next = std::move(next)] { FAIL() << "the loop has ended"; });
            loop.postDeletion([this] { freed += "d"; }); // At once.
        }
    };
    auto poster = std::make_unique<Poster>(*loop, freed, 3);
    loop->postDeletion([poster = poster.release()] { delete poster; });
    auto timer = loop->schedule(Duration::seconds(1), [held = std::make_unique<Poster>(*loop, freed, 1)] {});
    auto* const ending = loop.get();
    auto timerOfTimer =
        loop->schedule(Duration::seconds(1), [&, held = std::shared_ptr<void>(nullptr, [&, ending](void*) {
            ending->schedule(Duration::seconds(1), [] { FAIL() << "the loop has ended"; }).detach();
            ending->run();
            freed += "t";
        })] {});
    loop.reset();
    EXPECT_EQ(freed, "3d2d1d01dt0");
    EXPECT_FALSE(timer);
    EXPECT_FALSE(timerOfTimer);
    EXPECT_EQ(assertions.reports().size(), 1U) << "It does not run any more.";
}

TEST(Loop, AThreadMayEndTheLoopWithItsLastPostOrStopAlsoBeforeItRuns)
{
    for (int round = 0; round < 200; ++round) {
        auto loop = std::make_unique<Loop>();
        std::thread poster([loop = loop.get(), round] {
            if (round % 2 == 0)
                loop->stop();
            else
                loop->post([loop] { loop->stop(); });
        });
        loop->run();
        loop.reset();
        poster.join();
    }
}

} // namespace
