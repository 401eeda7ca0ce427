#pragma once
#include "api/scanner.h"
#include "foundation/coroutine/semaphore.h"
#include "foundation/run_loop.h"
#include "scanner/folder_walk.h"

namespace media {

/// One scan. First the folder is walked, then its files go through in batches:
///
///     compared by the library -> the changed ones read here -> stored by the library -> seen by the observer
///
/// Only a few batches are under way at a time, so that no receiver gets more than it keeps up with. The work is done in slices of
/// a few milliseconds, between which the loop runs other tasks.
class ScanJob {
public:
    ScanJob(fn::RunLoop& loop, ScanOrder order); ///< `fn::FileException` if the folder cannot be read.

    /// Does it all; to be called once, and to be cancelled before the job is destroyed. Gives the folders that could not be read.
    fn::Promise<PathSample> run();

    // The settings.
    static constexpr auto sliceTime = fn::Duration::milliseconds(5);
    static constexpr int batchesUnderWay = 4;
    static constexpr std::size_t largestBatch =
        256; ///< Files: a transaction of the library, and what a killed scanner loses.

    ScanProgress progress() const;
    const fn::String& folder() const { return _order.folder; }
    int underWay() const { return _underWay; } ///< Batches under way.

private:
    fn::Promise<void> walk();
    fn::Promise<void> handleBatches();
    FoundFiles nextBatch();
    fn::Promise<ScannedFiles> read(FoundFiles& batch, std::vector<std::size_t>& positions);
    fn::Promise<void> tell();
    bool isSliceOver() const;
    fn::Promise<void> nextSlice();

    fn::RunLoop& _loop;
    const ScanOrder _order;
    FolderWalk _walk;
    bool _walking = true;
    std::size_t _batchFiles = 0;
    std::size_t _next = 0; // The first file that is in no batch.
    std::size_t _done = 0;
    int _underWay = 0; // Batches under way.
    fn::Semaphore _reader { 1 }; // One batch is read at a time.
    fn::Duration _sliceEnd; // By the loop's clock.
};

} // namespace media
