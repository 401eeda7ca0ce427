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

/// A network adapter as the kernel has it.
struct NetworkAdapter {
    DWORD index = 0;
    std::string name;
    DWORD type = 0; ///< IF_TYPE_...
    std::vector<SocketAddress> addresses;
    std::vector<SocketAddress> gateways; ///< Of its default routes in the main table, IPv4 routes first.
};

/// The kernel's tables of which adapters consist.
struct NetworkTables {
    NetlinkMessages links;
    NetlinkMessages addresses;
    NetlinkMessages routes; ///< IPv4. The default ones matter.
    NetlinkMessages routes6;
};

NetworkTables readNetworkTables(); ///< `fn::IOException`. Thread-safe.

/// In the order of the links. Messages that make no sense are passed over.
std::vector<NetworkAdapter> networkAdapters(const NetworkTables& tables);

} // namespace platform
