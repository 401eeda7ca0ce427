#pragma once
#include "base/export.h"
#include "platform/scoped_override.h"
#include "platform/windows_types.h"

struct sockaddr;

namespace platform {

inline constexpr ULONG GAA_FLAG_SKIP_UNICAST = 0x01;
inline constexpr ULONG GAA_FLAG_SKIP_ANYCAST = 0x02;
inline constexpr ULONG GAA_FLAG_SKIP_MULTICAST = 0x04;
inline constexpr ULONG GAA_FLAG_SKIP_DNS_SERVER = 0x08;
inline constexpr ULONG GAA_FLAG_SKIP_FRIENDLY_NAME = 0x20;
inline constexpr ULONG GAA_FLAG_INCLUDE_GATEWAYS = 0x80;

inline constexpr DWORD IF_TYPE_OTHER = 1;
inline constexpr DWORD IF_TYPE_ETHERNET_CSMACD = 6;
inline constexpr DWORD IF_TYPE_PPP = 23;
inline constexpr DWORD IF_TYPE_SOFTWARE_LOOPBACK = 24;
inline constexpr DWORD IF_TYPE_IEEE80211 = 71;
inline constexpr DWORD IF_TYPE_TUNNEL = 131;

inline constexpr ULONG ERROR_SUCCESS = 0;
inline constexpr ULONG ERROR_NOT_ENOUGH_MEMORY = 8;
inline constexpr ULONG ERROR_GEN_FAILURE = 31; ///< The system refused the call.
inline constexpr ULONG ERROR_INVALID_PARAMETER = 87;
inline constexpr ULONG ERROR_BUFFER_OVERFLOW = 111;
inline constexpr ULONG ERROR_NO_DATA = 232;
inline constexpr ULONG ERROR_NOT_FOUND = 1168;

/// A socket address with the families and the layout of Linux. The scope of a link-local IPv6 address is the index of its
/// adapter.
struct SOCKET_ADDRESS {
    sockaddr* lpSockaddr;
    std::int32_t iSockaddrLength;
};

struct IP_ADAPTER_UNICAST_ADDRESS {
    ULONG Length;
    DWORD Flags;
    IP_ADAPTER_UNICAST_ADDRESS* Next;
    SOCKET_ADDRESS Address;
};

struct IP_ADAPTER_GATEWAY_ADDRESS {
    ULONG Length;
    DWORD Reserved;
    IP_ADAPTER_GATEWAY_ADDRESS* Next;
    SOCKET_ADDRESS Address;
};

/// One network adapter; the lists end with null. It has only the members that this library uses.
struct IP_ADAPTER_ADDRESSES {
    ULONG Length;
    DWORD IfIndex;
    IP_ADAPTER_ADDRESSES* Next;
    char* AdapterName;
    IP_ADAPTER_UNICAST_ADDRESS* FirstUnicastAddress;
    DWORD IfType;
    IP_ADAPTER_GATEWAY_ADDRESS* FirstGatewayAddress;
};

/// Writes the network adapters, in the kernel's order and in any state, into the `*SizePointer` bytes at `AdapterAddresses`,
/// which are aligned for pointers. All pointers that it writes point into those bytes.
///
/// `Family` is AF_UNSPEC, AF_INET or AF_INET6 and chooses among the addresses. Gateways are the next hops of the default
/// routes in the main table, IPv4 routes first, each in the order of their metrics. There are no lists of anycast, multicast
/// and DNS addresses.
///
/// `ERROR_BUFFER_OVERFLOW`: there is not room enough; `*SizePointer` is then the number of bytes needed, with some more for
/// adapters that may appear meanwhile. `ERROR_NO_DATA`: no adapter. Thread-safe.
FN_EXPORT ULONG GetAdaptersAddresses(
    ULONG Family, ULONG Flags, void* Reserved, IP_ADAPTER_ADDRESSES* AdapterAddresses, ULONG* SizePointer);

/// For tests: answers `GetAdaptersAddresses()`.
using ScopedAdaptersAddresses = ScopedOverride<GetAdaptersAddresses>;
extern template class FN_EXPORT ScopedOverride<GetAdaptersAddresses>;

} // namespace platform
