#pragma once
#include "api/library.h"
#include "api/scan_observer.h"
#include "base/ref_counted.h"
#include "scanner/folder_walk.h"
#include <deque>
#include <memory>

namespace media {

struct ScanOrder {
    fn::String folder;
    ScanId scan;
    fn::AutoPtr<Library> library;
    fn::AutoPtr<ScanObserver> observer;
};

/// One scan. First the folder is walked, then its files go through in batches:
///
///     compared by the library -> the changed ones read here -> stored by the library -> seen by the observer
///
/// Only a few batches are under way at a time, so that no receiver gets more than it keeps up with. The work is done in slices of
/// a few milliseconds, between which the loop runs other tasks.
class ScanJob final : public fn::RefCountedObject {
public:
    ScanJob(fn::RunLoop& loop, ScanOrder order); ///< `fn::FileException` if the folder cannot be read.

    fn::Promise<PathSample> start(); ///< To be called once. Gives the folders that could not be read.
    void cancel(); ///< Ends reading and sending; the promise stays pending.

    // The settings.
    static constexpr auto sliceTime = fn::Duration::milliseconds(5);
    static constexpr int batchesUnderWay = 4;
    static constexpr std::size_t largestBatch =
        256; ///< Files: a transaction of the library, and what a killed scanner loses.

    ScanProgress progress() const;
    const fn::String& folder() const { return _order.folder; }
    int underWay() const { return _underWay; } ///< Batches under way.

private:
    struct Batch;
    using BatchPointer = std::shared_ptr<Batch>;

    ~ScanJob() override;

    void schedule();
    void runSlice();
    bool workOn();
    void tellFound();
    void endWalk();
    void beginBatches();
    void beginBatch();
    void onCompared(const BatchPointer& batch, std::vector<std::size_t>&& changed);
    void readNext();
    void onStored(std::size_t files);
    void onSeen();
    void fail(std::exception_ptr failure);

    fn::RunLoop& _loop;
    const ScanOrder _order;
    const fn::Promise<PathSample> _outcome;
    FolderWalk _walk;
    bool _walking = true;
    bool _ended = false;
    bool _isScheduled = false; // Whether a slice is posted.
    bool _isTelling = false; // Whether the observer is still to answer for the progress of the walk.
    fn::Duration _lastTold; // When the observer was last told.
    std::size_t _batchFiles = 0;
    std::size_t _next = 0; // The first file that is in no batch.
    std::size_t _done = 0;
    int _underWay = 0; // Batches under way.
    std::deque<BatchPointer> _toRead;
};

} // namespace media
