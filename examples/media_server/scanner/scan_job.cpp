#include "scanner/scan_job.h"
#include "api/text.h"
#include "base/exceptions.h"
#include "core/services/resource_hash.h"
#include "foundation/logging/logging.h"
#include "foundation/time/clock.h"
#include <algorithm>
#include <unistd.h>

namespace media {
namespace {

constexpr auto tellInterval = fn::Duration::milliseconds(100); // How often progress is told during the walk.
constexpr std::size_t fewestBatches = 16; // Also of a small folder, so that progress is seen.

const fn::logging::Category& category()
{
    static const auto& result = fn::logging::CategoryManager::instance().getCategory("mediaServer.scanner");
    return result;
}

constexpr const char* site = "examples/media_server/scanner";

/// Empty for a file that cannot be read, for whatever reason: the file is counted, and the scan goes on.
fn::String hashOf(const fn::String& path)
{
    try {
        return core::ResourceHash::forFile(path);
    } catch (const fn::FileException& exception) {
        FN_LOG_TO(category(), fn::logging::Info, {}, site, "Can not read {}", exception.what());
        return {};
    }
}

} // namespace

/// Consecutive files of the walk.
struct ScanJob::Batch {
    std::size_t first;
    std::size_t count;
    std::vector<std::size_t> changed; // The positions of changed files in the batch.
    std::vector<ScannedFile> read; // The changed files that were read so far.
};

ScanJob::ScanJob(fn::RunLoop& loop, ScanOrder order)
    : _loop(loop),
      _order(std::move(order)),
      _outcome(fn::Promise<PathSample>::create()),
      _walk(_order.folder)
{
}

ScanJob::~ScanJob() = default;

fn::Promise<PathSample> ScanJob::start()
{
    FN_LOG_TO(category(), fn::logging::Info, {}, site, "Scanning {}", printable(_order.folder));
    schedule();
    return _outcome;
}

void ScanJob::cancel() { _ended = true; }

void ScanJob::fail(std::exception_ptr failure)
{
    if (!std::exchange(_ended, true)) _outcome.reject(failure);
}

ScanProgress ScanJob::progress() const
{
    return { ::getpid(), _walking, static_cast<std::int64_t>(_walk.files().size()), static_cast<std::int64_t>(_done) };
}

// --- Slices

void ScanJob::schedule()
{
    if (std::exchange(_isScheduled, true)) return;
    _loop.post([self = fn::AutoPtr(this)] { self->runSlice(); });
}

void ScanJob::runSlice()
{
    _isScheduled = false;
    const auto end = _loop.clock().monotonic() + sliceTime;
    try {
        while (!_ended && workOn()) {
            if (_loop.clock().monotonic() >= end) return schedule();
        }
    } catch (...) {
        fail(std::current_exception());
    }
}

/// Does one piece of work; false if there is none.
bool ScanJob::workOn()
{
    if (_walking) {
        _walk.step();
        if (_walk.isOver())
            endWalk();
        else
            tellFound();
        return true;
    }
    if (_toRead.empty()) return false;
    readNext();
    return true;
}

// --- Walking

void ScanJob::tellFound()
{
    const auto now = _loop.clock().monotonic();
    if (_isTelling || now - _lastTold < tellInterval) return;
    _isTelling = true;
    _lastTold = now;
    _order.observer->progress(progress())
        .then([self = fn::AutoPtr(this)] { self->_isTelling = false; },
            [self = fn::AutoPtr(this)](std::exception_ptr failure) { self->fail(failure); });
}

void ScanJob::endWalk()
{
    _walking = false;
    FN_LOG_TO(category(), fn::logging::Debug, {}, site, "Found {} files", _walk.files().size());
    _batchFiles = std::clamp<std::size_t>(_walk.files().size() / fewestBatches, 1, largestBatch);
    if (!_walk.files().empty()) return beginBatches();
    ++_underWay; // An empty batch, so that the observer hears of the end in any case.
    onStored(0);
}

// --- Batches

void ScanJob::beginBatches()
{
    while (!_ended && _underWay < batchesUnderWay && _next < _walk.files().size()) beginBatch();
}

void ScanJob::beginBatch()
{
    const auto batch = std::make_shared<Batch>();
    batch->first = _next;
    batch->count = std::min(_batchFiles, _walk.files().size() - _next);
    _next += batch->count;
    ++_underWay;
    const auto begin = _walk.files().begin() + static_cast<std::ptrdiff_t>(batch->first);
    _order.library->compare(_order.scan, { begin, begin + static_cast<std::ptrdiff_t>(batch->count) })
        .then([self = fn::AutoPtr(this), batch](
                  std::vector<std::size_t>&& changed) { self->onCompared(batch, std::move(changed)); },
            [self = fn::AutoPtr(this)](std::exception_ptr failure) { self->fail(failure); });
}

void ScanJob::onCompared(const BatchPointer& batch, std::vector<std::size_t>&& changed)
{
    if (_ended) return;
    if (changed.empty()) return onStored(batch->count);
    batch->changed = std::move(changed);
    _toRead.push_back(batch);
    schedule();
}

void ScanJob::readNext()
{
    const auto batch = _toRead.front();
    const auto& file = _walk.files().at(batch->first + batch->changed.at(batch->read.size()));
    batch->read.push_back({ file, hashOf(_order.folder + "/" + file.path) });
    if (batch->read.size() < batch->changed.size()) return;

    _toRead.pop_front();
    _order.library->store(_order.scan, batch->read)
        .then([self = fn::AutoPtr(this), count = batch->count] { self->onStored(count); },
            [self = fn::AutoPtr(this)](std::exception_ptr failure) { self->fail(failure); });
}

void ScanJob::onStored(std::size_t files)
{
    if (_ended) return;
    _done += files;
    FN_LOG_TO(category(), fn::logging::Log, {}, site, "{} of {} files are done", _done, _walk.files().size());
    _order.observer->progress(progress())
        .then([self = fn::AutoPtr(this)] { self->onSeen(); },
            [self = fn::AutoPtr(this)](std::exception_ptr failure) { self->fail(failure); });
}

void ScanJob::onSeen()
{
    if (_ended) return;
    --_underWay;
    beginBatches();
    if (_underWay > 0) return;
    _ended = true;
    FN_LOG_TO(category(), fn::logging::Info, {}, site, "Scanned {} files", _done);
    _outcome.fulfill(_walk.unreadableFolders());
}

} // namespace media
