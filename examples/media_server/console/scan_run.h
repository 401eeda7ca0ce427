#pragma once
#include "api/application.h"
#include "api/scanner.h"
#include "console/output.h"
#include "console/progress_display.h"
#include "console/summary.h"
#include "core/ipc/interface/remote.h"

namespace media {

/// The work of the console: asks the main program for a scan, lets the scanner update the library, shows progress and result, goes
/// on with scans that were handed over meanwhile, and ends the program. If the library or the scanner dies, the console waits for
/// the new one and goes on with the same scan. The system stays awake during a scan.
class ScanRun {
public:
    explicit ScanRun(ipc::Worker& worker); ///< Borrows the worker.

    /// To be called once the worker is connected; cancelling ends a scan that is under way. Fails if there is no main program.
    fn::Promise<void> run();

private:
    fn::Promise<Ending> scanAll(ipc::Ref<Application> application);
    fn::Promise<void> scan(RunOptions options);
    fn::Promise<void> show(ProgressDisplay& display);
    fn::Promise<void> attempt(RunOptions& options, ipc::Ref<ScanObserver> observer, Summary& summary);

    ipc::Worker& _worker;
    Output _output;
    Output _progressOutput;
    ipc::Remote<Library> _library;
    ipc::Remote<Scanner> _scanner;
};

} // namespace media
