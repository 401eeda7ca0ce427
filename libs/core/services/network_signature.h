#pragma once
#include "base/exceptions.h"
#include "base/lifetime.h"
#include "base/string.h"
#include "foundation/handle.h"
#include "foundation/net/ip_address.h"
#include "foundation/net/network_state_notifier.h"
#include <array>
#include <folly/Function.h>
#include <list>
#include <vector>

namespace core {

/// A short text that stands for the network which this machine is attached to: the addresses of its default gateways and
/// their hardware addresses, such as "c0a80101:001122334455"; several are joined with "/". It stays the same on the same
/// network and changes with it. "??????:????????????" if there is no gateway, or the gateways can not be found out.
///
/// A gateway whose hardware address this machine does not know yet has zeros for it. Therefore the text is computed anew
/// not only when the system tells of a change but also 3, 6 and 10 seconds later.
///
/// Belongs to the thread of its loop (for `instance()` the default loop): while the loop does not run, no change is seen. Each
/// look asks the kernel and waits for its answers, two seconds at most for each; a failure is logged and gives the text with
/// question marks.
class FN_EXPORT NetworkSignature {
public:
    /// The object of the process, made at the first call, which may come from any thread, and never destroyed.
    static NetworkSignature& instance();

    /// Looks at the network now, and sees changes while `loop` runs. Borrows `loop` and `notifier`.
    NetworkSignature(fn::RunLoop& loop, fn::NetworkStateNotifier& notifier);
    NetworkSignature(const NetworkSignature&) = delete;
    NetworkSignature& operator=(const NetworkSignature&) = delete;
    ~NetworkSignature(); ///< Not to be called in a listener.

    fn::String get() const { return _signature; } ///< The text of the latest look.

    /// Calls `listener` with the new text after each change. Listeners are called in the order in which they were added; a
    /// listener may add and remove any of them, also itself, and an added one is not told of the present change. A
    /// listener's exception goes to `fn::unhandledException()`, and the next listener is called.
    fn::Handle addChangeListener(folly::Function<void(const fn::String&)> listener);

    /// The gateways of the Ethernet and wireless adapters that have an IPv4 address others can reach, each once, in the
    /// system's order. `fn::IOException` where the system does not list its adapters. Thread-safe.
    static std::vector<fn::IPAddress> getActiveGateways();

private:
    class Listener;

    static fn::String computeNetworkSignature();
    void subscribe();
    void networkStateChanged();
    void maybeUpdate();
    void notify();
    void removeListener(std::list<Listener>::iterator listener);

    fn::String _signature;
    std::list<Listener> _listeners; // While a change is told, removed listeners stay in the list, marked.
    fn::Handle _subscription;
    std::array<fn::Handle, 3> _rechecks;

    fn::RunLoop& _loop;
    fn::NetworkStateNotifier& _notifier;
    int _notifying = 0; // Depth of notify(): a listener may run the loop.
    unsigned _notifications = 0;
    fn::Lifetime _lifetime;
};

} // namespace core
