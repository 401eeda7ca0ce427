#pragma once
#include "core/g_main_context_integration.h"
#include "foundation/uv/loop.h"
#include <atomic>
#include <functional>
#include <glib.h>
#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <thread>

namespace test {

/// What a source calls. The flag says to ThreadSanitizer what GLib's locks say, which it does not see: who calls and frees
/// the function comes after who has made it.
struct SourceFunction {
    std::function<bool()> function;
    std::atomic<bool> isGiven { false };
};

/// A source of GLib that calls a function of the test. GLib keeps the function; false ends the source.
inline void attach(GSource* source, std::function<bool()> function)
{
    const auto call = [](gpointer data) -> gboolean {
        const auto& given = *static_cast<SourceFunction*>(data);
        return given.isGiven.load(std::memory_order_acquire) && given.function();
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

inline void callWhenIdle(std::function<void()> function, int priority = G_PRIORITY_DEFAULT)
{
    GSource* const source = g_idle_source_new();
    g_source_set_priority(source, priority);
    attach(source, [function = std::move(function)] {
        function();
        return false;
    });
}

inline void callAfter(unsigned milliseconds, std::function<void()> function)
{
    attach(g_timeout_source_new(milliseconds), [function = std::move(function)] {
        function();
        return false;
    });
}

/// A loop, and the context on it. The loop sleeps where it can: what does not wake it is not seen.
class MainContext : public testing::Test {
protected:
    MainContext() { core::GMainContextIntegration::init(*loop); }
    ~MainContext() override
    {
        while (core::GMainContextIntegration::instance()) core::GMainContextIntegration::quit();
    }

    /// Runs the loop until somebody stops it; false where nobody does.
    bool runUntilStopped()
    {
        bool isTooLate = false;
        const auto bound = loop->schedule(fn::Duration::seconds(20), [&] {
            isTooLate = true;
            loop->stop();
        });
        loop->run();
        return !isTooLate;
    }

    void runFor(int milliseconds)
    {
        const auto end = loop->schedule(fn::Duration::milliseconds(milliseconds), [this] { loop->stop(); });
        loop->run();
    }

    std::optional<fn::uv::Loop> loop { std::in_place };
};

} // namespace test
