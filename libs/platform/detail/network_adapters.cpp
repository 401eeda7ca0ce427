#include "platform/detail/network_adapters.h"
#include "platform/adapters_addresses.h"
#include "platform/detail/netlink.h"
#include <algorithm>
#include <linux/if_arp.h>
#include <linux/if_link.h>
#include <unistd.h>

namespace platform {
namespace {

using Bytes = std::span<const std::uint8_t>;
using Adapters = std::vector<NetworkAdapter>;

// No address for a family other than IPv4 and IPv6, or for another length.
std::optional<SocketAddress> socketAddress(int family, Bytes bytes, DWORD adapter)
{
    SocketAddress result {};
    if (family == AF_INET && bytes.size() == sizeof(in_addr)) {
        result.v4.sin_family = AF_INET;
        std::memcpy(&result.v4.sin_addr, bytes.data(), bytes.size());
        return result;
    }
    if (family != AF_INET6 || bytes.size() != sizeof(in6_addr)) return std::nullopt;
    result.v6.sin6_family = AF_INET6;
    std::memcpy(&result.v6.sin6_addr, bytes.data(), bytes.size());
    if (IN6_IS_ADDR_LINKLOCAL(&result.v6.sin6_addr)) result.v6.sin6_scope_id = adapter;
    return result;
}

// The folder shows the network namespace in which /sys was mounted. If this process is in another one, a wireless adapter
// counts as Ethernet.
bool isWireless(const std::string& name)
{
    return !name.contains('/') && ::access(("/sys/class/net/" + name + "/wireless").c_str(), F_OK) == 0;
}

DWORD adapterType(unsigned short hardware, const std::string& name)
{
    switch (hardware) {
    case ARPHRD_ETHER: return isWireless(name) ? IF_TYPE_IEEE80211 : IF_TYPE_ETHERNET_CSMACD;
    case ARPHRD_IEEE80211:
    case ARPHRD_IEEE80211_PRISM:
    case ARPHRD_IEEE80211_RADIOTAP: return IF_TYPE_IEEE80211;
    case ARPHRD_LOOPBACK: return IF_TYPE_SOFTWARE_LOOPBACK;
    case ARPHRD_PPP: return IF_TYPE_PPP;
    case ARPHRD_NONE: // Point-to-point adapters, such as those of WireGuard and tun.
    case ARPHRD_TUNNEL:
    case ARPHRD_TUNNEL6:
    case ARPHRD_SIT:
    case ARPHRD_IPGRE:
    case ARPHRD_IP6GRE: return IF_TYPE_TUNNEL;
    default: return IF_TYPE_OTHER;
    }
}

Adapters readLinks(const NetlinkMessages& links)
{
    Adapters result;
    links.forEach<ifinfomsg>(RTM_NEWLINK, [&](const nlmsghdr& message, const ifinfomsg& link) {
        const auto name = NetlinkAttributes(message, sizeof(link)).bytes(IFLA_IFNAME);
        NetworkAdapter adapter;
        adapter.index = static_cast<DWORD>(link.ifi_index);
        adapter.name.assign(name.begin(), std::find(name.begin(), name.end(), 0));
        adapter.type = adapterType(link.ifi_type, adapter.name);
        result.push_back(std::move(adapter));
    });
    return result;
}

NetworkAdapter* find(Adapters& adapters, DWORD index)
{
    const auto found = std::ranges::find(adapters, index, &NetworkAdapter::index);
    return found == adapters.end() ? nullptr : &*found;
}

void readAddresses(Adapters& adapters, const NetlinkMessages& addresses)
{
    addresses.forEach<ifaddrmsg>(RTM_NEWADDR, [&](const nlmsghdr& message, const ifaddrmsg& header) {
        const NetlinkAttributes attributes(message, sizeof(header));
        const auto local = attributes.bytes(IFA_LOCAL); // IFA_ADDRESS of a point-to-point link is the peer's.
        const auto bytes = local.empty() ? attributes.bytes(IFA_ADDRESS) : local;
        const auto address = socketAddress(header.ifa_family, bytes, header.ifa_index);
        auto* const adapter = find(adapters, header.ifa_index);
        if (adapter && address) adapter->addresses.push_back(*address);
    });
}

// Adds a next hop, whose address is of the route's own family, or (RTA_VIA) of another one.
void addGateway(Adapters& adapters, std::optional<DWORD> index, int family, const NetlinkAttributes& attributes)
{
    auto* const adapter = index ? find(adapters, *index) : nullptr;
    if (!adapter) return;
    auto bytes = attributes.bytes(RTA_GATEWAY);
    if (const auto via = attributes.bytes(RTA_VIA); via.size() > sizeof(rtvia)) {
        rtvia header;
        std::memcpy(&header, via.data(), sizeof(header));
        family = header.rtvia_family;
        bytes = via.subspan(sizeof(header));
    }
    if (const auto address = socketAddress(family, bytes, *index)) adapter->gateways.push_back(*address);
}

void addMultipathGateways(Adapters& adapters, int family, Bytes hops)
{
    rtnexthop hop;
    while (hops.size() >= sizeof(hop)) {
        std::memcpy(&hop, hops.data(), sizeof(hop));
        if (hop.rtnh_len < sizeof(hop) || hop.rtnh_len > hops.size()) return;
        const NetlinkAttributes attributes(hops.subspan(sizeof(hop), hop.rtnh_len - sizeof(hop)));
        addGateway(adapters, static_cast<DWORD>(hop.rtnh_ifindex), family, attributes);
        hops = hops.subspan(std::min<std::size_t>(RTNH_ALIGN(hop.rtnh_len), hops.size()));
    }
}

bool isDefault(const rtmsg& route) { return route.rtm_dst_len == 0; }

// Only default routes are kept: a router's table may have a million others.
bool isDefaultRoute(const nlmsghdr& message)
{
    const auto* const route = headerOf<rtmsg>(message);
    return route && isDefault(*route);
}

void readGateways(Adapters& adapters, const NetlinkMessages& routes, unsigned char family)
{
    routes.forEach<rtmsg>(RTM_NEWROUTE, [&](const nlmsghdr& message, const rtmsg& route) {
        if (route.rtm_family != family || !isDefault(route) || route.rtm_type != RTN_UNICAST) return;
        if (route.rtm_flags & RTM_F_CLONED) return;
        const NetlinkAttributes attributes(message, sizeof(route));
        if (attributes.number(RTA_TABLE).value_or(route.rtm_table) != RT_TABLE_MAIN) return;
        addGateway(adapters, attributes.number(RTA_OIF), family, attributes);
        addMultipathGateways(adapters, family, attributes.bytes(RTA_MULTIPATH));
    });
}

NetlinkRequest linksRequest()
{
    NetlinkRequest request(RTM_GETLINK, NLM_F_DUMP);
    request.putHeader<ifinfomsg>();
    const std::uint32_t without = RTEXT_FILTER_SKIP_STATS; // Statistics are most of the answer.
    request.put(IFLA_EXT_MASK, { reinterpret_cast<const std::uint8_t*>(&without), sizeof(without) });
    return request;
}

NetlinkRequest addressesRequest()
{
    NetlinkRequest request(RTM_GETADDR, NLM_F_DUMP);
    request.putHeader<ifaddrmsg>();
    return request;
}

NetlinkMessages askForDefaultRoutes(unsigned char family)
{
    NetlinkRequest request(RTM_GETROUTE, NLM_F_DUMP);
    request.putHeader<rtmsg>().rtm_family = family;
    return askNetlink(request, isDefaultRoute);
}

} // namespace

NetworkTables readNetworkTables()
{
    return { askNetlink(linksRequest()), askNetlink(addressesRequest()), askForDefaultRoutes(AF_INET),
        askForDefaultRoutes(AF_INET6) };
}

std::vector<NetworkAdapter> networkAdapters(const NetworkTables& tables)
{
    auto adapters = readLinks(tables.links);
    readAddresses(adapters, tables.addresses);
    readGateways(adapters, tables.routes, AF_INET);
    readGateways(adapters, tables.routes6, AF_INET6);
    return adapters;
}

} // namespace platform
