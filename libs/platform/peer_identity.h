#pragma once
#include "base/exceptions.h"
#include "base/export.h"
#include <cstdint>

namespace platform {

/// Who was at the other end of a local socket when it was connected.
struct PeerIdentity {
    std::uint32_t userId = 0;
    std::uint32_t groupId = 0;
    std::int32_t processId = 0;

    /// This process's user, or root, who can do all that this user can anyway.
    FN_EXPORT bool isOwnUserOrRoot() const noexcept;
};

/// The peer of a connected Unix-domain socket. `fn::IOException` with ErrnoInfo if this is none.
FN_EXPORT PeerIdentity peerIdentity(int descriptor);

} // namespace platform
