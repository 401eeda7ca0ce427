// Any bytes as the kernel's answers about adapters, addresses and routes: datagrams, each behind a byte for its table and two
// for its length.
#include "base/exceptions.h"
#include "platform/detail/network_adapters.h"
#include <cstdlib>

namespace {

using namespace platform;

constexpr unsigned port = 77;
constexpr unsigned sequence = 5;

void require(bool condition)
{
    if (!condition) std::abort();
}

/// A datagram in memory of its own: what is read beyond its end shows.
void take(NetlinkMessages& messages, std::span<const std::uint8_t> bytes)
{
    const auto copy = std::make_unique_for_overwrite<std::byte[]>(bytes.size());
    std::ranges::copy(std::as_bytes(bytes), copy.get());
    try {
        messages.take({ copy.get(), bytes.size() });
    } catch (const fn::IOException&) {
        // The answer is an error, or too large.
    }
}

void requireWhole(const SocketAddress& address)
{
    const bool isIPv4 = address.any.sa_family == AF_INET;
    require(isIPv4 || address.any.sa_family == AF_INET6);
    require(isIPv4 || address.v6.sin6_scope_id == 0 || IN6_IS_ADDR_LINKLOCAL(&address.v6.sin6_addr));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const NetlinkMessages none(port, sequence);
    NetworkTables tables { none, none, none, none };
    NetlinkMessages* const all[] { &tables.links, &tables.addresses, &tables.routes, &tables.routes6 };
    for (std::span left(data, size); left.size() >= 3;) {
        const std::size_t length = std::min<std::size_t>(left[1] | left[2] << 8, left.size() - 3);
        take(*all[left[0] % std::size(all)], left.subspan(3, length));
        left = left.subspan(3 + length);
    }
    for (const auto& adapter : networkAdapters(tables)) {
        require(adapter.name.find('\0') == adapter.name.npos);
        for (const auto& address : adapter.addresses) requireWhole(address);
        for (const auto& gateway : adapter.gateways) requireWhole(gateway);
    }
    return 0;
}
