#include "console/scan_run.h"
#include "api/text.h"
#include "core/ipc/object/callable_object_instance.h"
#include "core/ipc/registry.h"
#include "core/services/app_info.h"
#include "foundation/time/clock.h"
#include <cerrno>
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

/// The observer that the console gives the scanner with an order. The scanner goes on when `onProgress` has returned.
class ScanObserverService final : public ipc::CallableObjectInstance {
public:
    using OnProgress = folly::Function<void(const ScanProgress& progress)>;

    ScanObserverService(ipc::Worker& worker, OnProgress onProgress)
        : CallableObjectInstance(worker),
          _onProgress(std::move(onProgress))
    {
    }

private:
    void onMethodCall(const CallContext& context, const fn::String& name, const fn::Value& argument) override
    {
        if (name != "progress") return sendUnknownMethod(context, name);
        _onProgress(ScanProgress::fromValue(argument));
        sendResult(context);
    }
    fn::AutoPtr<ipc::ObjectReference> createReference(ipc::ObjectReferenceInitializer& initializer) override
    {
        return fn::makeAuto<ScanObserver>(initializer);
    }

    OnProgress _onProgress;
};

} // namespace

ScanRun::ScanRun(ipc::Worker& worker) : _worker(worker), _output(STDOUT_FILENO), _progressOutput(STDERR_FILENO) { }

ScanRun::~ScanRun() = default;

void ScanRun::start()
{
    _observer = fn::makeAuto<ScanObserverService>(_worker, [self = fn::WeakPtr(this)](const ScanProgress& progress) {
        if (const auto run = self.lock()) run->onProgress(progress);
    });
    _work = _worker.registry()
                ->getInstance<Application>(findTimeout)
                .then([self = fn::AutoPtr(this)](fn::AutoPtr<Application>&& application) {
                    self->_application = application;
                    return application->options();
                })
                .then([self = fn::AutoPtr(this)](RunOptions&& options) { self->begin(std::move(options)); })
                .then([] {}, [self = fn::AutoPtr(this)](std::exception_ptr failure) { self->onFailed(failure); });
}

void ScanRun::stop()
{
    _stopped = true;
    if (_work) _work.cancel();
    endScan();
    _observer.reset();
}

void ScanRun::endScan()
{
    _display.reset(); // Removes the bar.
    _awake.reset();
}

void ScanRun::begin(RunOptions&& options)
{
    _options = std::move(options);
    _started = _worker.loop().clock().monotonic();
    _scan.reset();
    _relaunches = 0;
    _hasKilled = false;
    _awake.emplace();
    auto& output = _options.json ? _progressOutput : _output;
    if (!_options.quiet && (!_options.json || output.isTerminal())) {
        _display = std::make_unique<ProgressDisplay>(output, _worker.loop(), [this] {
            // The failure is handled in a task of its own, since that destroys the display.
            _worker.loop().post([self = fn::AutoPtr(this)] { self->checkOutput(); });
        });
        _display->note(fmt::format(
            "{}: scanning {}", core::AppInfo::instance().applicationDisplayName(), printable(_options.folder)));
    }
    checkOutput();
    if (!_stopped) attempt();
}

void ScanRun::attempt()
{
    const fn::AutoPtr self(this);
    _work = findLibrary()
                .then([self] { return self->findScanner(); })
                .then([self] { return self->scanId(); })
                .then([self](ScanId&& scan) {
                    self->_scan = scan;
                    return self->_scanner->scan(self->_options.folder, scan, self->_library, self->_observer);
                })
                .then([self](PathSample&& unreadableFolders) {
                    self->_unreadableFolders = std::move(unreadableFolders);
                    return self->_library->finishScan(*self->_scan);
                })
                .then([self](Totals&& totals) { self->onDone(std::move(totals)); })
                .then([] {}, [self](std::exception_ptr failure) { self->onFailed(failure); });
}

fn::Promise<void> ScanRun::findLibrary()
{
    const auto open = [self = fn::AutoPtr(this)] {
        self->_openFolder = fn::String();
        return self->_library->open(self->_options.dataFolder).then([self] {
            self->_openFolder = self->_options.dataFolder;
        });
    };
    if (_library) return _openFolder == _options.dataFolder ? fn::Promise<void>::fulfilled() : open();
    return _worker.registry()
        ->getInstance<Library>(findTimeout)
        .then([self = fn::AutoPtr(this), open](fn::AutoPtr<Library>&& library) {
            self->_library = std::move(library);
            return open();
        });
}

fn::Promise<void> ScanRun::findScanner()
{
    if (_scanner) return fn::Promise<void>::fulfilled();
    return _worker.registry()
        ->getInstance<Scanner>(findTimeout)
        .then([self = fn::AutoPtr(this)](fn::AutoPtr<Scanner>&& scanner) { self->_scanner = std::move(scanner); });
}

/// The order has the same ScanId for each attempt, so that an attempt finds the files that the one before has done.
fn::Promise<ScanId> ScanRun::scanId()
{
    return _scan ? fn::Promise<ScanId>::fulfilled(*_scan) : _library->beginScan(_options.folder);
}

void ScanRun::onProgress(const ScanProgress& progress)
{
    if (_stopped) return;
    if (_display) _display->update(progress);
    // The scanner waits for this observer's answer, so it is killed before it goes on.
    if (_options.killScanner && !_hasKilled && progress.isHalfWay() && progress.processId > 1) {
        _hasKilled = true;
        ::kill(progress.processId, SIGKILL);
    }
}

void ScanRun::onDone(Totals&& totals)
{
    if (_stopped) return;
    const auto time = _worker.loop().clock().monotonic() - _started;
    const Summary summary { _options.folder, std::move(totals), _unreadableFolders, _relaunches, time };
    endScan();
    if (!_options.quiet) _output.write(_options.json ? summaryJson(summary) : summaryText(summary));
    checkOutput();
    if (!_stopped) next();
}

/// Goes on with the next scan that was handed over meanwhile, or finishes.
void ScanRun::next()
{
    _work =
        _application->nextScan()
            .then([self = fn::AutoPtr(this)](std::optional<RunOptions>&& options) {
                if (options)
                    self->begin(std::move(*options));
                else
                    self->finish(self->_failures.empty() ? 0 : failed, self->_failures);
            })
            .then([] {},
                [self = fn::AutoPtr(this)](std::exception_ptr failure) { self->finish(failed, describe(failure)); });
}

void ScanRun::onFailed(std::exception_ptr failure)
{
    if (_stopped) return;
    const int dead = replaceDeadModules();
    _relaunches += dead;
    if (dead > 0 && _relaunches <= mostRelaunches) return attempt();
    fail(dead == 0 ? describe(failure) : fmt::format("Modules ended unexpectedly {} times. Giving up.", _relaunches));
}

/// Notes that this scan has failed, and goes on with the next one.
void ScanRun::fail(const std::string& message)
{
    endScan();
    _failures += (_failures.empty() ? "" : "\n") + message;
    if (_application)
        next();
    else
        finish(failed, _failures);
}

/// Drops the references to modules that have ended, so that their successors are looked up. Gives the number of these.
int ScanRun::replaceDeadModules()
{
    int dead = 0;
    const auto replace = [&](auto& module, const char* name) {
        if (!module || !module->dead()) return;
        module.reset();
        ++dead;
        if (_display) _display->note(fmt::format("The {} has ended unexpectedly. Waiting for its relaunch.", name));
    };
    replace(_library, "library");
    replace(_scanner, "scanner");
    return dead;
}

void ScanRun::checkOutput()
{
    const int error = _output.error();
    if (error == 0 || _stopped) return;
    if (error == EPIPE)
        finish(readerGone);
    else
        finish(failed, "standard output: " + std::generic_category().message(error));
}

void ScanRun::finish(int exitCode, const std::string& message)
{
    stop();
    if (_application)
        _application->finish(exitCode, message);
    else
        _worker.loop().stop(); // The main program takes a loop that ends of itself for a failure.
}

} // namespace media
