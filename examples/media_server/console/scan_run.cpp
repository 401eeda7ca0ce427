#include "console/scan_run.h"
#include "api/text.h"
#include "core/ipc/interface/service.h"
#include "core/ipc/object/object_dead_exception.h"
#include "core/services/app_info.h"
#include "core/services/sleep_preventer.h"
#include "foundation/coroutine/sleep.h"
#include "foundation/time/clock.h"
#include <csignal>
#include <fmt/format.h>
#include <system_error>
#include <unistd.h>

namespace media {
namespace {

constexpr auto findTimeout = fn::Duration::seconds(90); // The module manager gives up earlier, and tells why.
constexpr int mostRelaunches = 3; // A file may crash the scanner each time.

constexpr int failed = 1;
constexpr int readerGone = 128 + SIGPIPE; // The status that a shell reports of a program killed by SIGPIPE.

/// The observer that the console gives the scanner with an order. The scanner goes on when the signal has been fired.
class ScanObserverService final : public ipc::Service<ScanObserverService, ScanObserver> {
public:
    using Service::Service;

    void progress(const ScanProgress& progress) { onProgress.fire(progress); }

    fn::Signal<const ScanProgress&> onProgress;
};

} // namespace

ScanRun::ScanRun(ipc::Worker& worker)
    : _worker(worker),
      _output(STDOUT_FILENO),
      _progressOutput(STDERR_FILENO),
      _library(worker, findTimeout),
      _scanner(worker, findTimeout)
{
}

fn::Promise<void> ScanRun::run()
{
    const auto application = co_await ipc::find<Application>(_worker, findTimeout);
    Ending ending;
    try {
        ending = co_await scanAll(application);
    } catch (const std::system_error& error) { // Of the output.
        if (error.code() == std::errc::broken_pipe)
            ending.exitCode = readerGone;
        else
            ending = { failed, error.what() };
    } catch (...) {
        ending = { failed, describe(std::current_exception()) };
    }
    co_await application->finish(ending);
}

/// Catalogues one folder after another. A scan that fails does not hold up the next one.
fn::Promise<Ending> ScanRun::scanAll(ipc::Ref<Application> application)
{
    std::string failures;
    std::optional<RunOptions> options = co_await application->options();
    while (options) {
        try {
            co_await scan(*options);
        } catch (const std::system_error&) { // Nothing can be shown any more.
            throw;
        } catch (...) {
            failures += (failures.empty() ? "" : "\n") + describe(std::current_exception());
        }
        options = co_await application->nextScan();
    }
    co_return Ending { failures.empty() ? 0 : failed, failures };
}

fn::Promise<void> ScanRun::scan(RunOptions options)
{
    const core::SleepPreventer awake;
    const auto started = _worker.loop().clock().monotonic();
    auto& output = options.json ? _progressOutput : _output;
    const bool isShown = !options.quiet && (!options.json || output.isTerminal());
    ProgressDisplay display(output, _worker.loop(), isShown);
    display.note(
        fmt::format("{}: scanning {}", core::AppInfo::instance().applicationDisplayName(), printable(options.folder)));

    Summary summary;
    summary.folder = options.folder;
    const auto countDeaths = [&](auto& module, const char* name) {
        return module.onGone().connect([&summary, &display, name] {
            ++summary.relaunches;
            display.note(fmt::format("The {} has ended unexpectedly. Waiting for its relaunch.", name));
        });
    };
    const auto libraryDeaths = countDeaths(_library, "library");
    const auto scannerDeaths = countDeaths(_scanner, "scanner");
    const auto observer = fn::makeAuto<ScanObserverService>(_worker);
    const auto watching = observer->onProgress.connect([&](const ScanProgress& progress) {
        display.update(progress);
        // The scanner waits for this observer's answer, so it is killed before it goes on.
        if (options.killScanner && progress.isHalfWay() && progress.processId > 1) {
            options.killScanner = false;
            ::kill(progress.processId, SIGKILL);
        }
    });
    co_await fn::any(attempt(options, observer, summary), show(display));
    summary.time = _worker.loop().clock().monotonic() - started;
    display.removeBar();
    if (!options.quiet) _output.write(options.json ? summaryJson(summary) : summaryText(summary));
    _output.check();
}

/// Shows the progress until it is cancelled. Fails where nobody can see the result any more.
fn::Promise<void> ScanRun::show(ProgressDisplay& display)
{
    for (;;) {
        _output.check();
        co_await fn::sleep(display.interval());
        display.draw();
    }
}

/// Scans until the modules have lived long enough. Each time it is the same scan, so that what the one before has stored is found.
fn::Promise<void> ScanRun::attempt(RunOptions& options, ipc::Ref<ScanObserver> observer, Summary& summary)
{
    std::optional<ScanId> scan;
    for (int deaths = 0;;) {
        try {
            co_await _library->open(options.dataFolder);
            const auto library = _library.object(); // The one that has been opened.
            if (!scan) scan = co_await library->beginScan(options.folder);
            const ScanOrder order { options.folder, *scan, library, observer };
            summary.unreadableFolders = co_await _scanner->scan(order);
            summary.totals = co_await library->finishScan(*scan);
            co_return;
        } catch (const ipc::ObjectDeadException&) {
            if (++deaths <= mostRelaunches) continue;
            throw fn::RuntimeException(fmt::format("Modules ended unexpectedly {} times. Giving up.", deaths),
                fn::Exception::StackTrace::None);
        }
    }
}

} // namespace media
