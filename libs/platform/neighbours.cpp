#include "platform/neighbours.h"
#include "platform/adapters_addresses.h"
#include "platform/detail/netlink.h"
#include <algorithm>
#include <linux/neighbour.h>
#include <utility>

namespace platform {

namespace {

using Address = std::span<const BYTE>;

struct Neighbour {
    DWORD adapterIndex;
    HardwareAddress hardwareAddress;
};

constexpr int knownStates = NUD_PERMANENT | NUD_REACHABLE | NUD_STALE | NUD_DELAY | NUD_PROBE;

unsigned char family(Address address) { return address.size() == 4 ? AF_INET : AF_INET6; }

std::vector<Neighbour> neighboursOf(Address address)
{
    NetlinkRequest request(RTM_GETNEIGH, NLM_F_DUMP);
    request.putHeader<ndmsg>().ndm_family = family(address);
    std::vector<Neighbour> result;
    askNetlink(request).forEach<ndmsg>(RTM_NEWNEIGH, [&](const nlmsghdr& message, const ndmsg& entry) {
        if (entry.ndm_family != family(address) || !(entry.ndm_state & knownStates)) return;
        const NetlinkAttributes attributes(message, sizeof(entry));
        const auto hardware = attributes.bytes(NDA_LLADDR);
        Neighbour neighbour { static_cast<DWORD>(entry.ndm_ifindex), {} };
        if (!std::ranges::equal(attributes.bytes(NDA_DST), address)) return;
        if (hardware.size() != neighbour.hardwareAddress.size()) return;
        std::ranges::copy(hardware, neighbour.hardwareAddress.begin());
        result.push_back(neighbour);
    });
    return result;
}

// The index of the adapter through which packets to `address` leave; 0 if there is none.
DWORD adapterTowards(Address address)
{
    NetlinkRequest request(RTM_GETROUTE, 0);
    auto& header = request.putHeader<rtmsg>();
    header.rtm_family = family(address);
    header.rtm_dst_len = static_cast<unsigned char>(address.size() * 8);
    request.put(RTA_DST, address);
    DWORD result = 0;
    try {
        askNetlink(request).forEach<rtmsg>(RTM_NEWROUTE, [&](const nlmsghdr& message, const rtmsg& route) {
            result = NetlinkAttributes(message, sizeof(route)).number(RTA_OIF).value_or(0);
        });
    } catch (const fn::IOException&) {
        return 0; // There is no route.
    }
    return result;
}

DWORD find(Address address, DWORD adapterIndex, HardwareAddress& hardwareAddress)
{
    if (address.size() != 4 && address.size() != 16) return ERROR_INVALID_PARAMETER;
    auto neighbours = neighboursOf(address);
    if (adapterIndex != 0) {
        std::erase_if(neighbours, [&](const auto& neighbour) { return neighbour.adapterIndex != adapterIndex; });
    } else if (neighbours.size() > 1) {
        const auto towards = adapterTowards(address);
        std::ranges::sort(neighbours, {}, [&](const auto& neighbour) {
            return std::pair(neighbour.adapterIndex != towards, neighbour.adapterIndex);
        });
    }
    if (neighbours.empty()) return ERROR_NOT_FOUND;
    hardwareAddress = neighbours.front().hardwareAddress;
    return ERROR_SUCCESS;
}

} // namespace

DWORD findNeighbour(std::span<const BYTE> address, DWORD adapterIndex, HardwareAddress& hardwareAddress)
{
    try {
        return find(address, adapterIndex, hardwareAddress);
    } catch (const std::exception&) {
        return ERROR_GEN_FAILURE;
    }
}

} // namespace platform
