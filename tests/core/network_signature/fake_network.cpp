#include "fake_network.h"
#include <algorithm>
#include <cstring>
#include <netinet/in.h>
#include <stdexcept>

namespace test {
namespace {

using namespace platform;

template <typename T> T* make(std::vector<std::vector<char>>& memory)
{
    return new (memory.emplace_back(sizeof(T)).data()) T {};
}

std::pair<sockaddr*, int> socketAddress(const char* text, std::vector<std::vector<char>>& memory)
{
    const auto address = fn::IPAddress::fromString(text);
    if (!address) throw std::invalid_argument(text);
    if (address->family() == fn::IPAddress::Family::IPv4) {
        auto* const result = make<sockaddr_in>(memory);
        result->sin_family = AF_INET;
        std::memcpy(&result->sin_addr, address->addr(), address->length());
        return { reinterpret_cast<sockaddr*>(result), sizeof(*result) };
    }
    auto* const result = make<sockaddr_in6>(memory);
    result->sin6_family = AF_INET6;
    result->sin6_scope_id = address->scope();
    std::memcpy(&result->sin6_addr, address->addr(), address->length());
    return { reinterpret_cast<sockaddr*>(result), sizeof(*result) };
}

template <typename Entry> Entry* makeList(const std::vector<const char*>& texts, std::vector<std::vector<char>>& memory)
{
    Entry* first = nullptr;
    Entry** link = &first;
    for (const auto* text : texts) {
        *link = make<Entry>(memory);
        const auto [address, size] = socketAddress(text, memory);
        (*link)->Address = { address, size };
        link = &(*link)->Next;
    }
    return first;
}

} // namespace

FakeNetwork::FakeNetwork()
    : _adapters([this](ULONG, ULONG, IP_ADAPTER_ADDRESSES* buffer, ULONG* size) {
          ++calls;
          return list(buffer, *size);
      }),
      _neighbours([this](std::span<const BYTE> bytes, DWORD scope, HardwareAddress& hardwareAddress) {
          std::array<std::uint8_t, 16> full {};
          std::array<std::uint8_t, 4> shorter {};
          std::ranges::copy(bytes, full.begin());
          std::copy_n(bytes.begin(), 4, shorter.begin());
          return find(bytes.size() == 4 ? fn::IPAddress(shorter) : fn::IPAddress(full, scope), hardwareAddress);
      })
{
}

ULONG FakeNetwork::list(IP_ADAPTER_ADDRESSES* buffer, ULONG& size)
{
    if (!errors.empty()) {
        const auto error = errors.front();
        errors.erase(errors.begin());
        if (error != 0) return error;
    }
    if (adapters.empty()) return ERROR_NO_DATA;
    if (size < sizeof(*buffer)) {
        size = 300;
        return ERROR_BUFFER_OVERFLOW;
    }
    _memory.clear();
    IP_ADAPTER_ADDRESSES* entry = new (buffer) IP_ADAPTER_ADDRESSES {};
    for (std::size_t i = 0; i < adapters.size(); ++i) {
        if (i > 0) entry = entry->Next = make<IP_ADAPTER_ADDRESSES>(_memory);
        entry->IfType = adapters[i].type;
        entry->FirstUnicastAddress = makeList<IP_ADAPTER_UNICAST_ADDRESS>(adapters[i].addresses, _memory);
        entry->FirstGatewayAddress = makeList<IP_ADAPTER_GATEWAY_ADDRESS>(adapters[i].gateways, _memory);
    }
    return ERROR_SUCCESS;
}

DWORD FakeNetwork::find(const fn::IPAddress& address, HardwareAddress& hardwareAddress) const
{
    const auto found = neighbours.find(address.toString().toStdString());
    if (found == neighbours.end()) return ERROR_NOT_FOUND;
    hardwareAddress = found->second;
    return ERROR_SUCCESS;
}

} // namespace test
