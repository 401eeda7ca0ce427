#pragma once
#include "foundation/run_loop.h"
#include "foundation/signal.h"
#include <exception>
#include <memory>

namespace fn {

/// Calls listeners when something about the network has changed: an adapter, an address, a route. Many changes matter to nobody, so
/// a listener checks whether what it uses has changed. Changes of one turn of the loop make one call. Belongs to its loop's thread.
class FN_EXPORT NetworkStateNotifier {
public:
    /// The notifier of the process, on the default loop. This call is thread-safe, the notifier is not.
    static NetworkStateNotifier& instance();

    explicit NetworkStateNotifier(RunLoop& loop); ///< Fires on this loop, which outlives it.
    NetworkStateNotifier(const NetworkStateNotifier&) = delete;
    NetworkStateNotifier& operator=(const NetworkStateNotifier&) = delete;
    ~NetworkStateNotifier(); ///< Not to be called in a listener.

    /// Calls `listener` after each change and says whether there is a network: an adapter that runs and has an address. The first
    /// listener starts the watch, which then goes on. If the watch fails, it is tried again every 5 seconds; as soon as it works
    /// again, the listeners are called once for changes that they may have missed.
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
    bool _hasFailed = false; // The watch has failed, and is tried again.
};

} // namespace fn
