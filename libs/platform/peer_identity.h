#pragma once
#include "base/exceptions.h"
#include "base/export.h"
#include <cstdint>

namespace platform {

/// The process that was at the other end of a local socket when the socket was connected.
struct PeerIdentity {
    std::uint32_t userId = 0;
    std::int32_t processId = 0;

    /// Whether the peer's user is the user of this process, or root, who can do anyway what this user can do.
    FN_EXPORT bool isOwnUserOrRoot() const noexcept;
};

/// The peer of a connected Unix-domain socket. `fn::IOException` with ErrnoInfo if `descriptor` is no such socket.
FN_EXPORT PeerIdentity peerIdentity(int descriptor);

} // namespace platform
