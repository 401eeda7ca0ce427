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

/// What the console does: asks the main program what the user wants, has the scanner bring the library up to date, shows how
/// that goes and what came out, goes on with what else was asked for meanwhile, and ends the program. Where the library or
/// the scanner dies meanwhile it waits for the new one and goes on with the same scan. The system stays awake during a scan.
class ScanRun final : public fn::RefCountedObject {
public:
    explicit ScanRun(ipc::Worker& worker); ///< Connected. Borrowed until `stop()`.

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
    fn::Duration _started; // The scan that is under way.
    fn::AutoPtr<Application> _application;
    RunOptions _options;
    Output _output;
    Output _progressOutput;
    std::unique_ptr<ProgressDisplay> _display; // Null where progress is not shown.
    fn::Promise<void> _work; // What is under way.
    std::optional<core::SleepPreventer> _awake; // During a scan.
    fn::AutoPtr<Library> _library; // Empty until found, and after its death.
    fn::String _openFolder; // Whose catalogue the library has open.
    fn::AutoPtr<Scanner> _scanner; // The same.
    fn::AutoPtr<ipc::ObjectInstance> _observer;
    std::optional<ScanId> _scan;
    PathSample _unreadableFolders;
    int _relaunches = 0;
    bool _hasKilled = false;
    std::string _failures; // Of scans, for the end.
    bool _stopped = false;
};

} // namespace media
