#include "foundation/net/ip_address.h"
#include <algorithm>
#include <arpa/inet.h>
#include <netinet/in.h>

namespace fn {
namespace {

template <std::size_t Size> std::optional<std::array<std::uint8_t, Size>> parse(int family, const std::string& text)
{
    std::array<std::uint8_t, Size> bytes;
    const bool isWhole = !text.contains('\0'); // `inet_pton()` would stop at the NUL.
    if (!isWhole || ::inet_pton(family, text.c_str(), bytes.data()) != 1) return std::nullopt;
    return bytes;
}

} // namespace

IPAddress::IPAddress(const std::array<std::uint8_t, 4>& bytes) noexcept { std::ranges::copy(bytes, _bytes.begin()); }

IPAddress::IPAddress(const std::array<std::uint8_t, 16>& bytes, std::uint32_t scope) noexcept
    : _bytes(bytes),
      _family(Family::IPv6),
      _scope(scope)
{
}

std::optional<IPAddress> IPAddress::fromString(const String& text)
{
    if (const auto bytes = parse<4>(AF_INET, text.toStdString())) return IPAddress(*bytes);
    const auto percent = text.view().find('%');
    const auto bytes = parse<16>(AF_INET6, std::string(text.view().substr(0, percent)));
    if (!bytes) return std::nullopt;
    if (percent == std::string_view::npos) return IPAddress(*bytes);
    bool isNumber = false;
    const auto scope = text.substring(percent + 1).toInt64(0, 10, &isNumber);
    if (!isNumber || scope < 0 || scope > UINT32_MAX) return std::nullopt;
    return IPAddress(*bytes, static_cast<std::uint32_t>(scope));
}

std::optional<IPAddress> IPAddress::fromSocketAddress(const sockaddr* address, std::size_t size)
{
    if (!address || size < sizeof(address->sa_family)) return std::nullopt;
    if (address->sa_family == AF_INET && size >= sizeof(sockaddr_in)) {
        std::array<std::uint8_t, 4> bytes;
        std::memcpy(bytes.data(), &reinterpret_cast<const sockaddr_in*>(address)->sin_addr, bytes.size());
        return IPAddress(bytes);
    }
    if (address->sa_family != AF_INET6 || size < sizeof(sockaddr_in6)) return std::nullopt;
    const auto& full = *reinterpret_cast<const sockaddr_in6*>(address);
    std::array<std::uint8_t, 16> bytes;
    std::memcpy(bytes.data(), &full.sin6_addr, bytes.size());
    return IPAddress(bytes, full.sin6_scope_id);
}

bool IPAddress::isWildcard() const noexcept
{
    return std::ranges::all_of(_bytes, [](auto byte) { return byte == 0; });
}

bool IPAddress::isLoopback() const noexcept
{
    if (_family == Family::IPv4) return _bytes[0] == 127;
    return _bytes[15] == 1 && std::all_of(_bytes.begin(), _bytes.end() - 1, [](auto byte) { return byte == 0; });
}

bool IPAddress::isLinkLocal() const noexcept
{
    if (_family == Family::IPv4) return _bytes[0] == 169 && _bytes[1] == 254;
    return _bytes[0] == 0xfe && (_bytes[1] & 0xc0) == 0x80;
}

bool IPAddress::isMulticast() const noexcept
{
    return _family == Family::IPv4 ? (_bytes[0] & 0xf0) == 0xe0 : _bytes[0] == 0xff;
}

bool IPAddress::isBroadcast() const noexcept
{
    return _family == Family::IPv4 && std::ranges::all_of(bytes(), [](auto byte) { return byte == 0xff; });
}

String IPAddress::toString() const
{
    char text[INET6_ADDRSTRLEN];
    ::inet_ntop(_family == Family::IPv4 ? AF_INET : AF_INET6, addr(), text, sizeof(text));
    return _scope == 0 ? String(text) : text + ("%" + String::number(_scope));
}

} // namespace fn
