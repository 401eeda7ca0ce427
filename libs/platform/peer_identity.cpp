#include "platform/peer_identity.h"
#include "base/exceptions.h"
#include "base/posix.h"
#include <sys/socket.h>
#include <unistd.h>

namespace platform {

bool PeerIdentity::isOwnUserOrRoot() const noexcept { return userId == 0 || userId == ::geteuid(); }

PeerIdentity peerIdentity(int descriptor)
{
    ucred credentials {};
    socklen_t size = sizeof(credentials);
    if (::getsockopt(descriptor, SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0) {
        fn::posix::fail("Can not tell who is at the other end");
    }
    return { credentials.uid, credentials.pid };
}

} // namespace platform
