#include "scanner/scan_job.h"
#include "api/text.h"
#include "base/exceptions.h"
#include "core/services/resource_hash.h"
#include "foundation/coroutine/sleep.h"
#include "foundation/logging/logging.h"
#include "foundation/time/clock.h"
#include <algorithm>
#include <unistd.h>

namespace media {
namespace {

constexpr auto tellInterval = fn::Duration::milliseconds(100); // How often progress is told during the walk.
constexpr std::size_t fewestBatches = 16; // Also of a small folder, so that progress is seen.

FN_LOG_CATEGORY("mediaServer.scanner");

/// Empty for a file that cannot be read, for whatever reason: the file is counted, and the scan goes on.
fn::String hashOf(const fn::String& path)
{
    try {
        return core::ResourceHash::forFile(path);
    } catch (const fn::FileException& exception) {
        FN_LOG(Info, "Can not read {}", exception.what());
        return {};
    }
}

} // namespace

ScanJob::ScanJob(fn::RunLoop& loop, ScanOrder order) : _loop(loop), _order(std::move(order)), _walk(_order.folder) { }

fn::Promise<PathSample> ScanJob::run()
{
    FN_LOG(Info, "Scanning {}", printable(_order.folder));
    co_await walk();
    co_await tell(); // Also of an empty folder.
    std::vector<fn::Promise<void>> underWay;
    underWay.reserve(batchesUnderWay);
    for (int i = 0; i < batchesUnderWay; ++i) underWay.push_back(handleBatches());
    co_await fn::all(std::move(underWay));
    FN_LOG(Info, "Scanned {} files", _done);
    co_return _walk.unreadableFolders();
}

ScanProgress ScanJob::progress() const
{
    return { ::getpid(), _walking, static_cast<std::int64_t>(_walk.files().size()), static_cast<std::int64_t>(_done) };
}

fn::Promise<void> ScanJob::tell() { return _order.observer->progress(progress()); }

bool ScanJob::isSliceOver() const { return _loop.clock().monotonic() >= _sliceEnd; }

fn::Promise<void> ScanJob::nextSlice()
{
    co_await fn::sleep(_loop, fn::Duration());
    _sliceEnd = _loop.clock().monotonic() + sliceTime;
}

fn::Promise<void> ScanJob::walk()
{
    fn::Duration lastTold;
    for (; !_walk.isOver(); _walk.step()) {
        if (isSliceOver()) co_await nextSlice();
        const auto now = _loop.clock().monotonic();
        if (now - lastTold < tellInterval) continue;
        lastTold = now;
        co_await tell();
    }
    _walking = false;
    const auto files = _walk.files().size();
    FN_LOG(Debug, "Found {} files", files);
    _batchFiles = std::clamp<std::size_t>(files / fewestBatches, 1, largestBatch);
}

// --- Batches

/// Handles one batch after another until there is none left.
fn::Promise<void> ScanJob::handleBatches()
{
    while (_next < _walk.files().size()) {
        auto batch = nextBatch();
        ++_underWay;
        auto changed = co_await _order.library->compare(batch);
        if (!changed.empty()) {
            const auto scanned = co_await read(batch, changed);
            co_await _order.library->store(scanned);
        }
        _done += batch.files.size();
        FN_LOG(Log, "{} of {} files are done", _done, _walk.files().size());
        co_await tell();
        --_underWay;
    }
}

FoundFiles ScanJob::nextBatch()
{
    const auto begin = _walk.files().begin() + static_cast<std::ptrdiff_t>(_next);
    const auto count = std::min(_batchFiles, _walk.files().size() - _next);
    _next += count;
    return { _order.scan, { begin, begin + static_cast<std::ptrdiff_t>(count) } };
}

fn::Promise<ScannedFiles> ScanJob::read(FoundFiles& batch, std::vector<std::size_t>& positions)
{
    const auto turn = co_await _reader.acquire();
    ScannedFiles scanned { _order.scan, {} };
    for (const auto position : positions) {
        if (isSliceOver()) co_await nextSlice();
        const auto& file = batch.files.at(position);
        scanned.files.push_back({ file, hashOf(_order.folder + "/" + file.path) });
    }
    co_return scanned;
}

} // namespace media
