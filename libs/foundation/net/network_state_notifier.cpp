#include "foundation/net/network_state_notifier.h"
#include "foundation/logging/logging.h"
#include "foundation/system/process_local.h"
#include "foundation/uv/poll.h"
#include "platform/network_changes.h"
#include <utility>

namespace fn {
namespace {

constexpr Duration retryDelay(5'000'000);

FN_LOG_CATEGORY("core.networkState");

} // namespace

struct NetworkStateNotifier::Watch {
    Watch(uv::Loop& loop, Task onChange) : poll(loop, changes.descriptor(), std::move(onChange)) { }

    platform::NetworkChanges changes;
    uv::Poll poll; // Destroyed before `changes`, which it watches.
};

NetworkStateNotifier& NetworkStateNotifier::instance()
{
    static ProcessLocal<NetworkStateNotifier> notifier([] { return new NetworkStateNotifier(RunLoop::defaultLoop()); });
    return notifier.get();
}

NetworkStateNotifier::NetworkStateNotifier(RunLoop& loop) : _loop(loop) { }

NetworkStateNotifier::~NetworkStateNotifier() = default;

Handle NetworkStateNotifier::addChangeListener(folly::Function<void(bool)> listener)
{
    if (!_watch && !_hasFailed) startWatch();
    return _onChange.connect(std::move(listener));
}

void NetworkStateNotifier::startWatch()
{
    try {
        _watch = std::make_unique<Watch>(_loop.uvLoop(), [this] { changesArrived(); });
    } catch (const std::exception& exception) {
        watchFailed(exception);
    }
}

void NetworkStateNotifier::changesArrived()
{
    try {
        if (!_watch->changes.take()) return;
    } catch (const std::exception& exception) {
        _watch.reset(); // Otherwise the failure would come again in every turn.
        watchFailed(exception);
        return;
    }
    _onChange.fire(platform::isNetworkAvailable());
}

void NetworkStateNotifier::watchFailed(const std::exception& exception)
{
    if (!std::exchange(_hasFailed, true)) FN_LOG(Error, "Could not watch the network: {}", exception.what());
    _retry = _loop.schedule(retryDelay, [this] { retry(); });
}

void NetworkStateNotifier::retry()
{
    startWatch();
    if (!_watch) return;
    _hasFailed = false;
    FN_LOG(Info, "The network is being watched again");
    _onChange.fire(platform::isNetworkAvailable()); // For changes since the watch failed.
}

} // namespace fn
