#pragma once
#include "platform/detail/netlink.h"
#include "platform/windows_types.h"
#include <netinet/in.h>
#include <string>
#include <vector>

namespace platform {

union SocketAddress {
    sockaddr any;
    sockaddr_in v4;
    sockaddr_in6 v6;
};

/// A network adapter as the kernel knows it.
struct NetworkAdapter {
    DWORD index = 0;
    std::string name;
    DWORD type = 0; ///< IF_TYPE_...
    std::vector<SocketAddress> addresses;
    std::vector<SocketAddress> gateways; ///< The gateways of its default routes in the main table, IPv4 routes first.
};

/// The kernel's tables from which adapters are put together.
struct NetworkTables {
    NetlinkMessages links;
    NetlinkMessages addresses;
    NetlinkMessages routes; ///< Default routes of IPv4.
    NetlinkMessages routes6; ///< Default routes of IPv6.
};

NetworkTables readNetworkTables(); ///< `fn::IOException` on failure. Thread-safe.

/// The adapters, in the order of the links. Messages that make no sense are passed over.
std::vector<NetworkAdapter> networkAdapters(const NetworkTables& tables);

} // namespace platform
