#pragma once
#include "foundation/run_loop.h"
#include "foundation/signal.h"
#include <exception>
#include <memory>

namespace fn {

/// Tells when something about the network has changed: an adapter, an address, a route. Often nothing that matters has, so
/// who hears of it looks. What changes in one turn of the loop is told once. Belongs to the thread of its loop.
class FN_EXPORT NetworkStateNotifier {
public:
    /// Of the process, on the default loop. Thread-safe, as opposed to what it gives.
    static NetworkStateNotifier& instance();

    explicit NetworkStateNotifier(RunLoop& loop);
    NetworkStateNotifier(const NetworkStateNotifier&) = delete;
    NetworkStateNotifier& operator=(const NetworkStateNotifier&) = delete;
    ~NetworkStateNotifier(); ///< Not in a listener.

    /// Calls `listener` after each change with whether there is a network: an adapter that runs and has an address. The
    /// first listener starts the watch, which goes on. Where the system does not tell of changes, or not any more, it is
    /// asked again every 5 seconds, and as soon as it does, the listeners are called once for what they may have missed.
    Handle addChangeListener(folly::Function<void(bool)> listener);

private:
    struct Watch;
    void startWatch();
    void changesArrived();
    void watchFailed(const std::exception& exception);
    void retry();

    RunLoop& _loop;
    Signal<bool> _onChange;
    std::unique_ptr<Watch> _watch; // Null before the first listener and after a failure.
    Handle _retry;
    bool _hasFailed = false; // And is being tried again.
};

} // namespace fn
