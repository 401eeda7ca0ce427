#pragma once
#include "foundation/uv/async.h"
#include <atomic>
#include <glib.h>
#include <mutex>

namespace core {

/// Takes GLib's ownership of a context for a scope, which fails while another thread has it.
class ContextOwnership {
public:
    explicit ContextOwnership(GMainContext* context) : _context(context), _isOwner(g_main_context_acquire(context)) { }
    ContextOwnership(const ContextOwnership&) = delete;
    ~ContextOwnership()
    {
        if (_isOwner) g_main_context_release(_context);
    }
    explicit operator bool() const { return _isOwner; }

private:
    GMainContext* const _context;
    const bool _isOwner;
};

/// One wait at a time for the descriptors of a context: the loop's thread prepares and evaluates it, a thread of a pool waits. The
/// task on the pool shares this object, since it may outlive the code that has started it.
///
/// From `prepare()` until `isOver()` the loop's thread leaves all members alone but those under `_lock`.
class ContextWait {
public:
    ContextWait(GMainContext* context, fn::uv::Async& done) : _context(context), _done(&done) { }
    ContextWait(const ContextWait&) = delete;
    ~ContextWait() { g_free(_descriptors); }

    /// Has GLib prepare its sources and say what to wait for. Loop thread.
    void prepare();

    /// Waits for the descriptors, then sends the wake-up. Pool thread.
    void wait();

    /// Whether the latest wait has ended, and this object is the loop's thread's again.
    bool isOver() const { return _isOver.load(std::memory_order_acquire); }

    /// Has GLib find out which sources are ready, and dispatches these, after a wait. Loop thread.
    void checkAndDispatch();

    /// Ends a wait, also one that is still to begin on the pool. No wake-up is sent afterwards. Loop thread.
    void abandon();

private:
    void query();
    void poll();
    bool isAbandoned();

    GMainContext* const _context;
    int _maxPriority = 0;
    int _count = 0; // Descriptors to check; 0 when nothing waits for checking.
    int _allocated = 20; // Elements of `_descriptors`.
    GPollFD* _descriptors = static_cast<GPollFD*>(g_malloc0_n(20, sizeof(GPollFD)));
    int _timeout = 0; // Milliseconds; negative: none.
    guint _sourcesSeen = 0; // See `sourceCounter()`.
    int _patience = 1; // Milliseconds until the next try, while another thread owns the context.

    std::atomic<bool> _isOver { true };
    std::mutex _lock;
    fn::uv::Async* _done; // Guarded by `_lock`. Null once abandoned.
};

} // namespace core
