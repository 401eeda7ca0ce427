#include "scanner/scanner_service.h"
#include "api/scanner.h"
#include "api/text.h"
#include "base/exceptions.h"
#include <fmt/format.h>
#include <unistd.h>

namespace media {

ScannerService::ScannerService(ipc::Worker& worker) : CallableObjectInstance(worker) { }

ScannerService::~ScannerService()
{
    if (_job) _job->cancel();
}

fn::AutoPtr<ipc::ObjectReference> ScannerService::createReference(ipc::ObjectReferenceInitializer& initializer)
{
    return fn::makeAuto<Scanner>(initializer);
}

void ScannerService::onMethodCall(const CallContext& context, const fn::String& name, const fn::Value& argument)
{
    if (name == "scan")
        scan(context, argument);
    else
        sendUnknownMethod(context, name);
}

void ScannerService::scan(const CallContext& context, const fn::Value& argument)
{
    if (_job) throw fn::RuntimeException("Another folder is being scanned", fn::Exception::StackTrace::None);
    const auto job = fn::makeAuto<ScanJob>(loop(),
        ScanOrder { argument.at("folder").string(), ScanId::fromValue(argument.at("scan")),
            argument.at("library").object<Library>(), argument.at("observer").object<ScanObserver>() });
    _job = job;
    ++_scans;
    _caller = context;
    job->start().then(
        [self = fn::AutoPtr(this), context](PathSample&& unreadable) {
            self->_job.reset();
            self->sendResult(context, unreadable.toValue());
        },
        [self = fn::AutoPtr(this), context](std::exception_ptr failure) {
            self->_job.reset();
            self->sendError(context, failure);
        });
}

void ScannerService::inspect(core::InspectionResultWriter& page) const
{
    page.append(fmt::format("Scans begun: {}", _scans));
    page.append(fmt::format("Process: {}", ::getpid()));
    page.append(fmt::format("Slices of {} ms, batches of {} files, {} batches under way at most",
        ScanJob::sliceTime.totalMilliseconds(), ScanJob::largestBatch, ScanJob::batchesUnderWay));
    if (!_job) {
        page.append("Nothing is being scanned");
        return;
    }
    const auto progress = _job->progress();
    page.append(fmt::format("Scanning {}", printable(_job->folder())));
    page.append(progress.walking ? fmt::format("Looking for files: {} found", progress.found)
                                 : fmt::format("{} of {} files are done", progress.done, progress.found));
    page.append(fmt::format("Batches under way: {}", _job->underWay()));
}

void ScannerService::onMethodCallCancelled(const CallContext& context)
{
    if (!_job || context != _caller) return;
    _job->cancel();
    _job.reset();
}

} // namespace media
