#include "core/services/detail/context_wait.h"
#include <algorithm>

namespace core {
namespace {

// Other code that iterates the context (none should) would take its wake-ups: this one therefore looks again after so long at most.
constexpr int longestPatience = 100; // Milliseconds.

/// A number that goes up by one with each source attached, this function's own included. Only for the context's owner.
///
/// A source that is attached while nobody owns the context wakes nobody. Between the loop's thread and the pool's thread
/// there is such a moment; what happened in it shows in this number.
guint sourceCounter(GMainContext* context)
{
    static GSourceFuncs functions {};
    GSource* const probe = g_source_new(&functions, sizeof(GSource));
    const guint id = g_source_attach(probe, context);
    g_source_destroy(probe);
    g_source_unref(probe);
    return id;
}

} // namespace

void ContextWait::prepare()
{
    _isOver.store(false, std::memory_order_relaxed); // Given to the other thread with the task.
    const ContextOwnership ownership(_context);
    if (!ownership) {
        _count = 0;
        _timeout = _patience;
        _patience = std::min(2 * _patience, longestPatience);
        return;
    }
    _patience = 1;
    _sourcesSeen = sourceCounter(_context);
    g_main_context_prepare(_context, &_maxPriority);
    query();
}

void ContextWait::query()
{
    const auto ask = [this] {
        return g_main_context_query(_context, _maxPriority, &_timeout, _descriptors, _allocated);
    };
    while ((_count = ask()) > _allocated) {
        g_free(_descriptors);
        _allocated = _count;
        _descriptors = static_cast<GPollFD*>(g_malloc_n(static_cast<gsize>(_allocated), sizeof(GPollFD)));
    }
}

void ContextWait::wait()
{
    poll();
    _isOver.store(true, std::memory_order_release);
    const std::lock_guard guard(_lock);
    if (_done) _done->send();
}

void ContextWait::poll()
{
    if (_count == 0) {
        g_poll(nullptr, 0, _timeout);
        return;
    }
    const ContextOwnership ownership(_context);
    // In this order: who abandons us from now on wakes the context, and only its owner could take the wake-up away.
    if (isAbandoned()) return;
    int timeout = _timeout;
    if (!ownership)
        timeout = timeout < 0 ? longestPatience : std::min(timeout, longestPatience);
    else if (sourceCounter(_context) != _sourcesSeen + 1)
        timeout = 0;
    g_poll(_descriptors, static_cast<guint>(_count), timeout);
}

void ContextWait::checkAndDispatch()
{
    // The count is reset first: a callback may run the loop, which prepares and starts the next wait.
    const int count = std::exchange(_count, 0);
    if (count <= 0) return;
    const ContextOwnership ownership(_context);
    if (!ownership) return;
    if (g_main_context_check(_context, _maxPriority, _descriptors, count)) g_main_context_dispatch(_context);
}

void ContextWait::abandon()
{
    {
        const std::lock_guard guard(_lock);
        _done = nullptr;
    }
    g_main_context_wakeup(_context);
}

bool ContextWait::isAbandoned()
{
    const std::lock_guard guard(_lock);
    return !_done;
}

} // namespace core
