#pragma once
#include "base/exceptions.h"
#include "base/export.h"
#include <memory>

namespace platform {

/// The kernel's announcements about the network: adapters, addresses and routes that come, change and go.
class FN_EXPORT NetworkChanges {
public:
    NetworkChanges(); ///< `fn::IOException` if the kernel gives no announcements.
    NetworkChanges(const NetworkChanges&) = delete;
    NetworkChanges& operator=(const NetworkChanges&) = delete;
    ~NetworkChanges();

    int descriptor() const noexcept; ///< Readable while announcements wait. Close-on-exec.

    /// Takes a bounded number of the announcements that wait; false if none waits. Lost announcements count as one. Never waits.
    /// `fn::IOException` if no more announcements will come.
    bool take();

private:
    struct Private;
    std::unique_ptr<Private> _private;
};

/// Whether some adapter other than the loopback ones runs and has an address. Thread-safe.
FN_EXPORT bool isNetworkAvailable();

/// For tests: a NetworkChanges that is made while this object lives gets the announcements of this object, and no others. Nested
/// objects end in reverse order.
class FN_EXPORT ScopedNetworkChanges {
public:
    ScopedNetworkChanges();
    ScopedNetworkChanges(const ScopedNetworkChanges&) = delete;
    ScopedNetworkChanges& operator=(const ScopedNetworkChanges&) = delete;
    ~ScopedNetworkChanges(); ///< No more announcements come.

    void announce();

private:
    friend NetworkChanges;
    ScopedNetworkChanges* const _previous;
    int _announcer;
    int _listener; // -1 once a NetworkChanges has taken it.
};

} // namespace platform
