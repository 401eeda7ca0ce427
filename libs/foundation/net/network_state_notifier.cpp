#include "foundation/net/network_state_notifier.h"
#include "foundation/uv/poll.h"
#include "platform/network_changes.h"

namespace fn {

struct NetworkStateNotifier::Watch {
    Watch(uv::Loop& loop, Task onChange) : poll(loop, changes.descriptor(), std::move(onChange)) { }

    platform::NetworkChanges changes;
    uv::Poll poll; // Ends before what it watches.
};

NetworkStateNotifier& NetworkStateNotifier::instance()
{
    static auto& notifier = *new NetworkStateNotifier(RunLoop::defaultLoop());
    return notifier;
}

NetworkStateNotifier::NetworkStateNotifier(RunLoop& loop) : _loop(loop) { }

NetworkStateNotifier::~NetworkStateNotifier() = default;

Handle NetworkStateNotifier::addChangeListener(folly::Function<void(bool)> listener)
{
    if (!_watch) _watch = std::make_unique<Watch>(_loop.uvLoop(), [this] { changesArrived(); });
    return _onChange.connect(std::move(listener));
}

void NetworkStateNotifier::changesArrived()
{
    try {
        if (!_watch->changes.take()) return;
    } catch (...) {
        _watch.reset(); // Else it would be announced in every turn. The next listener tries again.
        throw;
    }
    _onChange.fire(platform::isNetworkAvailable());
}

} // namespace fn
