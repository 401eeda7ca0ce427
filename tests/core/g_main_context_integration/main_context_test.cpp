// What can break here: a source that is not heard, one that is heard on another thread, a loop that spins; a wait on the pool
// that outlives whoever it works for.
#include "core/services/g_main_context_integration.h"
#include "foundation/uv/loop.h"
#include "foundation/uv/turn_watcher.h"
#include "support/expectations.h"
#include "support/run_until.h"
#include <future>
#include <glib-unix.h>
#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <thread>

namespace {

using core::GMainContextIntegration;

/// What a source calls. The flag says to ThreadSanitizer what GLib's locks say, which it does not see: who calls and frees
/// the function comes after who has made it.
struct SourceFunction {
    std::function<void()> function;
    std::atomic<bool> isGiven { false };
};

/// Has GLib call `function` once, which it keeps until then.
void callFrom(GSource* source, std::function<void()> function)
{
    const auto call = [](gpointer data) -> gboolean {
        const auto& given = *static_cast<SourceFunction*>(data);
        if (given.isGiven.load(std::memory_order_acquire)) given.function();
        return G_SOURCE_REMOVE;
    };
    const auto free = [](gpointer data) {
        const std::unique_ptr<SourceFunction> owned(static_cast<SourceFunction*>(data));
        EXPECT_TRUE(owned->isGiven.load(std::memory_order_acquire));
    };
    auto given = std::make_unique<SourceFunction>();
    given->function = std::move(function);
    given->isGiven.store(true, std::memory_order_release);
    g_source_set_callback(source, call, given.release(), free);
    g_source_attach(source, nullptr);
    g_source_unref(source);
}

void callWhenIdle(std::function<void()> function)
{
    GSource* const source = g_idle_source_new();
    g_source_set_priority(source, G_PRIORITY_DEFAULT);
    callFrom(source, std::move(function));
}

/// A loop, and the context on it. The loop sleeps where it can: what does not wake it is not seen.
class MainContext : public testing::Test {
protected:
    MainContext() { GMainContextIntegration::init(*loop); }
    ~MainContext() override
    {
        GMainContextIntegration::quit();
        EXPECT_EQ(GMainContextIntegration::instance(), nullptr);
    }

    bool hearsASource()
    {
        bool isHeard = false;
        callWhenIdle([&] { isHeard = true; });
        return test::runUntil(*loop, [&] { return isHeard; });
    }

    std::optional<fn::uv::Loop> loop { std::in_place };
};

TEST_F(MainContext, HearsSourcesThatOtherThreadsAttachAndDestroy)
{
    constexpr int rounds = 1000;
    std::atomic<int> heard = 0;
    int ended = 0;
    const auto loopThread = std::this_thread::get_id();
    const auto attachAndAwait = [&] {
        for (int i = 0; i < rounds; ++i) {
            GSource* const unneeded = g_timeout_source_new(3'600'000);
            g_source_attach(unneeded, nullptr);
            const auto isHeard = std::make_shared<std::promise<std::thread::id>>();
            callWhenIdle([isHeard] { isHeard->set_value(std::this_thread::get_id()); });
            g_source_destroy(unneeded);
            g_source_unref(unneeded);
            auto thread = isHeard->get_future();
            if (thread.wait_for(std::chrono::seconds(20)) != std::future_status::ready) break;
            if (thread.get() == loopThread) ++heard;
        }
        loop->post([&] { ++ended; });
    };
    {
        const std::jthread first(attachAndAwait), second(attachAndAwait);
        EXPECT_TRUE(test::runUntil(*loop, [&] { return ended == 2; }));
    }
    EXPECT_EQ(heard, 2 * rounds);
}

TEST_F(MainContext, SleepsWhileNothingHappens)
{
    int turns = 0;
    const fn::uv::TurnWatcher watcher(*loop, fn::uv::TurnWatcher::Moment::AfterPoll, [&] { ++turns; });
    callFrom(g_timeout_source_new(3'600'000), [] {});
    test::runUntil(
        *loop, [] { return false; }, std::chrono::milliseconds(300));
    EXPECT_LE(turns, 10);
}

TEST_F(MainContext, LivesFromTheFirstInitToTheLastQuit)
{
    EXPECT_EQ(GMainContextIntegration::instance()->context(), g_main_context_default());
    fn::uv::Loop ignored;
    GMainContextIntegration::init(ignored);
    GMainContextIntegration::quit();
    EXPECT_TRUE(hearsASource());

    GMainContextIntegration::quit();
    EXPECT_EQ(GMainContextIntegration::instance(), nullptr);
    bool isHeard = false;
    callWhenIdle([&] { isHeard = true; });
    test::runTurns(*loop);
    EXPECT_FALSE(isHeard);
    const test::ExpectAssertions assertions;
    GMainContextIntegration::quit();
    EXPECT_EQ(assertions.reports().size(), 1u);
    GMainContextIntegration::init(*loop);
    EXPECT_TRUE(test::runUntil(*loop, [&] { return isHeard; }));
}

} // namespace
