// A dispatcher without modules, for tests, benchmarks and tools. Prints the native path of its socket on the first line of
// standard output as soon as it is ready, then serves until SIGINT or SIGTERM.
#include "core/ipc/dispatcher/dispatcher.h"
#include "core/services/app_info.h"
#include "core/services/logging_profile/logging_profiles.h"
#include "foundation/run_loop.h"
#include "foundation/uv/signal_watcher.h"
#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <optional>

namespace {

// Long enough for workers to read QUIT, and short enough for a person who waits.
constexpr auto quitDelay = fn::Duration::milliseconds(100);

struct Options {
    std::int64_t timeoutMilliseconds = 30'000;
    std::optional<int> logPriority;
};

int serve(const Options& options)
{
    core::AppInfo::initialize(core::AppInfo::App::Skyfold);
    core::initLoggingProfiles("hub");
    if (options.logPriority) core::setConsoleThreshold(*options.logPriority);

    auto& loop = fn::RunLoop::defaultLoop().uvLoop();
    ipc::Dispatcher dispatcher(loop, fn::Duration::milliseconds(options.timeoutMilliseconds));
    dispatcher.onReady()
        .connect([&] {
            std::printf("%s\n", dispatcher.pipeStream()->nativePath().c_str());
            std::fflush(stdout);
        })
        .detach();
    dispatcher.bind();
    dispatcher.start();

    bool stopping = false;
    const auto stop = [&] {
        if (!std::exchange(stopping, true)) dispatcher.stop(quitDelay, {});
    };
    const fn::uv::SignalWatcher interrupt(loop, SIGINT, stop);
    const fn::uv::SignalWatcher terminate(loop, SIGTERM, stop);
    loop.run();
    return 0;
}

int run(int argc, char** argv)
{
    CLI::App app(
        "Runs a dispatcher alone. The first line of standard output is the path of its socket.", "skyfold-hub");
    Options options;
    app.add_option("--timeout-ms", options.timeoutMilliseconds, "How long a worker may leave a ping unanswered")
        ->check(CLI::Range(std::int64_t(1), std::int64_t(86'400'000)))
        ->capture_default_str();
    app.add_option("--log", options.logPriority, "Show log messages up to this priority, 1 (errors) to 7 (traces)")
        ->check(CLI::Range(0, 7));
    CLI11_PARSE(app, argc, argv);
    return serve(options);
}

} // namespace

int main(int argc, char** argv)
{
    try {
        return run(argc, argv);
    } catch (const std::exception& exception) {
        std::fprintf(stderr, "skyfold-hub: %s\n", exception.what());
        return 1;
    }
}
