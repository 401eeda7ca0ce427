#pragma once
#include "base/exceptions.h"
#include "base/export.h"
#include <memory>

namespace platform {

/// What the kernel announces about the network: adapters, addresses and routes that come, change and go.
class FN_EXPORT NetworkChanges {
public:
    NetworkChanges(); ///< `fn::IOException` where the kernel does not announce them.
    NetworkChanges(const NetworkChanges&) = delete;
    NetworkChanges& operator=(const NetworkChanges&) = delete;
    ~NetworkChanges();

    int descriptor() const noexcept; ///< Readable while announcements wait. Close-on-exec.

    /// Takes announcements that wait, a bounded number of them; false if there was none. Lost ones count as one. Never
    /// waits. `fn::IOException` when there will be no more.
    bool take();

private:
    struct Private;
    std::unique_ptr<Private> _private;
};

/// Whether some adapter other than the loopback ones runs and has an address. Thread-safe.
FN_EXPORT bool isNetworkAvailable();

/// For tests: the NetworkChanges that is made while this lives hears what is announced here, and nothing else. Nested ones
/// end in reverse order.
class FN_EXPORT ScopedNetworkChanges {
public:
    ScopedNetworkChanges();
    ScopedNetworkChanges(const ScopedNetworkChanges&) = delete;
    ScopedNetworkChanges& operator=(const ScopedNetworkChanges&) = delete;
    ~ScopedNetworkChanges(); ///< There will be no more announcements.

    void announce();

private:
    friend NetworkChanges;
    ScopedNetworkChanges* const _previous;
    int _announcer;
    int _listener; // -1 once it has been taken.
};

} // namespace platform
