#include "platform/network_changes.h"
#include "base/posix.h"
#include "platform/detail/netlink.h"
#include <atomic>
#include <cerrno>
#include <ifaddrs.h>
#include <net/if.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace platform {
namespace {

using fn::posix::fail;

std::atomic<ScopedNetworkChanges*> scoped { nullptr }; // The innermost one.

constexpr unsigned groups =
    RTMGRP_LINK | RTMGRP_IPV4_IFADDR | RTMGRP_IPV6_IFADDR | RTMGRP_IPV4_ROUTE | RTMGRP_IPV6_ROUTE;

constexpr int takenAtOnce = 64; // Most announcements of one take(): a busy router must not keep the caller.

} // namespace

struct NetworkChanges::Private {
    explicit Private(int listener) : descriptor(listener) { }
    Private() : socket(std::in_place, groups, SOCK_NONBLOCK), descriptor(socket->descriptor()) { }
    ~Private()
    {
        if (!socket) ::close(descriptor);
    }

    std::optional<NetlinkSocket> socket; // None if a test announces.
    const int descriptor;
};

NetworkChanges::NetworkChanges()
{
    auto* const announcer = scoped.load();
    const int listener = announcer ? std::exchange(announcer->_listener, -1) : -1;
    _private = listener >= 0 ? std::make_unique<Private>(listener) : std::make_unique<Private>();
}

NetworkChanges::~NetworkChanges() = default;

int NetworkChanges::descriptor() const noexcept { return _private->descriptor; }

bool NetworkChanges::take()
{
    char byte; // The rest of a datagram is dropped: listeners look up what has changed.
    for (int taken = 0; taken < takenAtOnce; ++taken) {
        const auto size = ::recv(_private->descriptor, &byte, sizeof(byte), MSG_DONTWAIT);
        if (size > 0 || (size < 0 && errno == ENOBUFS)) continue; // ENOBUFS: announcements were lost.
        if (size < 0 && errno == EINTR) continue;
        if (size < 0 && errno == EAGAIN) return taken > 0;
        fail("Network changes are not announced any more", size < 0 ? errno : 0);
    }
    return true;
}

bool isNetworkAvailable()
{
    ifaddrs* list = nullptr;
    if (::getifaddrs(&list) != 0) return false;
    const std::unique_ptr<ifaddrs, decltype(&::freeifaddrs)> owner(list, &::freeifaddrs);
    for (; list; list = list->ifa_next) {
        const int family = list->ifa_addr ? list->ifa_addr->sa_family : AF_UNSPEC;
        const bool runs = (list->ifa_flags & (IFF_UP | IFF_RUNNING)) == (IFF_UP | IFF_RUNNING);
        if (runs && !(list->ifa_flags & IFF_LOOPBACK) && (family == AF_INET || family == AF_INET6)) return true;
    }
    return false;
}

ScopedNetworkChanges::ScopedNetworkChanges() : _previous(scoped)
{
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) fail("Could not make sockets");
    _announcer = ends[0];
    _listener = ends[1];
    scoped = this;
}

ScopedNetworkChanges::~ScopedNetworkChanges()
{
    scoped = _previous;
    ::close(_announcer);
    if (_listener >= 0) ::close(_listener);
}

void ScopedNetworkChanges::announce()
{
    if (::send(_announcer, "", 1, MSG_NOSIGNAL) != 1) fail("Nobody listens");
}

} // namespace platform
