#pragma once
#include "api/application.h"
#include "api/scanner.h"
#include "console/output.h"
#include "console/progress_display.h"
#include "console/summary.h"
#include "core/ipc/worker/worker.h"
#include "core/services/sleep_preventer.h"
#include <memory>
#include <optional>

namespace media {

/// The work of the console: asks the main program for a scan, lets the scanner update the library, shows progress and result, goes
/// on with scans that were handed over meanwhile, and ends the program. If the library or the scanner dies, the console waits for
/// the new one and goes on with the same scan. The system stays awake during a scan.
class ScanRun final : public fn::RefCountedObject {
public:
    explicit ScanRun(ipc::Worker& worker); ///< Borrows the worker, which is connected, until `stop()`.

    void start();
    void stop(); ///< Ends a scan that is under way; nothing is shown any more.

private:
    ~ScanRun() override;

    void begin(RunOptions&& options);
    void next();
    void endScan();
    void attempt();
    fn::Promise<void> findLibrary();
    fn::Promise<void> findScanner();
    fn::Promise<ScanId> scanId();
    void onProgress(const ScanProgress& progress);
    void onDone(Totals&& totals);
    void onFailed(std::exception_ptr failure);
    void fail(const std::string& message);
    int replaceDeadModules();
    void checkOutput();
    void finish(int exitCode, const std::string& message = {});

    ipc::Worker& _worker;
    fn::Duration _started; // When the present scan began.
    fn::AutoPtr<Application> _application;
    RunOptions _options;
    Output _output;
    Output _progressOutput;
    std::unique_ptr<ProgressDisplay> _display; // Null while progress is not shown.
    fn::Promise<void> _work; // The call or chain of calls that this waits for.
    std::optional<core::SleepPreventer> _awake; // Set during a scan.
    fn::AutoPtr<Library> _library; // Empty until found, and after its death.
    fn::String _openFolder; // The folder of the catalogue that the library has opened.
    fn::AutoPtr<Scanner> _scanner; // Empty until found, and after its death.
    fn::AutoPtr<ipc::ObjectInstance> _observer;
    std::optional<ScanId> _scan;
    PathSample _unreadableFolders;
    int _relaunches = 0;
    bool _hasKilled = false;
    std::string _failures; // The failures of scans, shown at the end.
    bool _stopped = false;
};

} // namespace media
