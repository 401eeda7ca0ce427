#include "scanner/scanner_service.h"
#include "api/text.h"
#include "base/exceptions.h"
#include <fmt/format.h>
#include <unistd.h>

namespace media {

fn::Promise<PathSample> ScannerService::scan(ScanOrder order)
{
    if (!_job.expired()) throw fn::RuntimeException("Another folder is being scanned", fn::Exception::StackTrace::None);
    const auto job = std::make_shared<ScanJob>(loop(), std::move(order)); // Ends with this call.
    _job = job;
    ++_scans;
    co_return co_await job->run();
}

void ScannerService::inspect(core::InspectionResultWriter& page) const
{
    page.append(fmt::format("Scans begun: {}", _scans));
    page.append(fmt::format("Process: {}", ::getpid()));
    page.append(fmt::format("Slices of {} ms, batches of {} files, {} batches under way at most",
        ScanJob::sliceTime.totalMilliseconds(), ScanJob::largestBatch, ScanJob::batchesUnderWay));
    const auto job = _job.lock();
    if (!job) {
        page.append("Nothing is being scanned");
        return;
    }
    const auto progress = job->progress();
    page.append(fmt::format("Scanning {}", printable(job->folder())));
    page.append(progress.walking ? fmt::format("Looking for files: {} found", progress.found)
                                 : fmt::format("{} of {} files are done", progress.done, progress.found));
    page.append(fmt::format("Batches under way: {}", job->underWay()));
}

} // namespace media
