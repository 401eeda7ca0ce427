#include "platform/adapters_addresses.h"
#include "platform/detail/network_adapters.h"
#include <cstring>
#include <new>

namespace platform {

template class ScopedOverride<GetAdaptersAddresses>;

namespace {

// Bytes that are asked for beyond the need: between two calls an adapter or an address may appear.
constexpr std::size_t spareBytes = 4096;

constexpr std::size_t aligned(std::size_t bytes)
{
    return (bytes + alignof(void*) - 1) / alignof(void*) * alignof(void*);
}

/// An entry of a list and the address that the entry points at.
template <typename Entry> struct Block {
    Entry entry;
    SocketAddress address;
};

/// Hands out a buffer piece by piece. Behind the end of the buffer it gives no more, and only counts the bytes.
class Pieces {
public:
    Pieces(void* memory, std::size_t bytes) : _memory(static_cast<std::byte*>(memory)), _bytes(bytes) { }

    void* take(std::size_t bytes)
    {
        const auto offset = _needed;
        _needed += aligned(bytes);
        return _memory && _needed <= _bytes ? _memory + offset : nullptr;
    }
    std::size_t needed() const { return _needed; }

private:
    std::byte* const _memory;
    const std::size_t _bytes;
    std::size_t _needed = 0;
};

template <typename Entry>
void write(Pieces& pieces, const std::vector<SocketAddress>& addresses, ULONG family, Entry*& first)
{
    Entry** link = &first;
    for (const auto& address : addresses) {
        if (family != AF_UNSPEC && family != address.any.sa_family) continue;
        void* const memory = pieces.take(sizeof(Block<Entry>));
        if (!memory) continue;
        auto* const block = new (memory) Block<Entry> { {}, address };
        block->entry.Length = sizeof(Entry);
        block->entry.Address.lpSockaddr = &block->address.any;
        block->entry.Address.iSockaddrLength =
            static_cast<std::int32_t>(address.any.sa_family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6));
        *link = &block->entry;
        link = &block->entry.Next;
    }
}

IP_ADAPTER_ADDRESSES* write(Pieces& pieces, const NetworkAdapter& adapter, ULONG family, ULONG flags)
{
    IP_ADAPTER_ADDRESSES entry {};
    entry.Length = sizeof(entry);
    entry.IfIndex = adapter.index;
    entry.IfType = adapter.type;
    void* const memory = pieces.take(sizeof(entry));
    entry.AdapterName = static_cast<char*>(pieces.take(adapter.name.size() + 1));
    if (entry.AdapterName) std::memcpy(entry.AdapterName, adapter.name.c_str(), adapter.name.size() + 1);
    if (!(flags & GAA_FLAG_SKIP_UNICAST)) write(pieces, adapter.addresses, family, entry.FirstUnicastAddress);
    if (flags & GAA_FLAG_INCLUDE_GATEWAYS) write(pieces, adapter.gateways, family, entry.FirstGatewayAddress);
    return memory ? new (memory) IP_ADAPTER_ADDRESSES(entry) : nullptr;
}

ULONG adaptersAddresses(ULONG family, ULONG flags, IP_ADAPTER_ADDRESSES* addresses, ULONG* size)
{
    const bool knowsFamily = family == AF_UNSPEC || family == AF_INET || family == AF_INET6;
    if (!size || !knowsFamily) return ERROR_INVALID_PARAMETER;
    const bool isAligned = reinterpret_cast<std::uintptr_t>(addresses) % alignof(IP_ADAPTER_ADDRESSES) == 0;
    if (*size >= sizeof(IP_ADAPTER_ADDRESSES) && !isAligned) return ERROR_INVALID_PARAMETER;
    const auto adapters = networkAdapters(readNetworkTables());
    if (adapters.empty()) return ERROR_NO_DATA;
    Pieces pieces(addresses, *size);
    IP_ADAPTER_ADDRESSES* last = nullptr;
    for (const auto& adapter : adapters) {
        auto* const entry = write(pieces, adapter, family, flags);
        if (last) last->Next = entry;
        if (entry) last = entry;
    }
    if (addresses && pieces.needed() <= *size) return ERROR_SUCCESS;
    *size = static_cast<ULONG>(pieces.needed() + spareBytes);
    return ERROR_BUFFER_OVERFLOW;
}

} // namespace

ULONG GetAdaptersAddresses(ULONG Family, ULONG Flags, void*, IP_ADAPTER_ADDRESSES* AdapterAddresses, ULONG* SizePointer)
{
    if (const auto answer = ScopedAdaptersAddresses::current())
        return answer(Family, Flags, nullptr, AdapterAddresses, SizePointer);
    try {
        return adaptersAddresses(Family, Flags, AdapterAddresses, SizePointer);
    } catch (const std::bad_alloc&) {
        return ERROR_NOT_ENOUGH_MEMORY;
    } catch (const std::exception&) {
        return ERROR_GEN_FAILURE;
    }
}

} // namespace platform
