#pragma once
#include "base/string.h"
#include <array>
#include <optional>
#include <span>

struct sockaddr;

namespace fn {

/// An IPv4 or IPv6 address. A link-local IPv6 address may have a scope: the index of the adapter by which it is reached.
class FN_EXPORT IPAddress {
public:
    /// Which internet protocol.
    enum class Family : int { IPv4 = 0, IPv6 = 1 };

    IPAddress() noexcept = default; ///< 0.0.0.0.
    /// In network order; a scope belongs to addresses that are local to a link.
    explicit IPAddress(const std::array<std::uint8_t, 4>& bytes) noexcept;
    explicit IPAddress(const std::array<std::uint8_t, 16>& bytes, std::uint32_t scope = 0) noexcept;

    /// From dotted digits, or IPv6 text with or without "%" and the number of the scope; anything else is none.
    static std::optional<IPAddress> fromString(const String& text);

    /// None if `address` is null or of another family, or if `size` is too small for its family.
    static std::optional<IPAddress> fromSocketAddress(const sockaddr* address, std::size_t size);

    Family family() const noexcept { return _family; } ///< Of this address.
    const std::uint8_t* addr() const noexcept { return _bytes.data(); } ///< `length()` bytes in network order.
    std::size_t length() const noexcept { return _family == Family::IPv4 ? 4 : 16; } ///< In bytes.
    /// In network order. Borrowed from the address.
    std::span<const std::uint8_t> bytes() const noexcept { return { addr(), length() }; }
    std::uint32_t scope() const noexcept { return _scope; } ///< 0: none.

    bool isWildcard() const noexcept; ///< 0.0.0.0 or ::
    bool isLoopback() const noexcept; ///< Whether it is this machine for itself: 127.0.0.0/8, ::1.
    bool isLinkLocal() const noexcept; ///< 169.254.0.0/16, fe80::/10
    bool isMulticast() const noexcept; ///< Whether it names a group of machines.
    bool isBroadcast() const noexcept; ///< 255.255.255.255
    /// Whether it can belong to one machine.
    bool isUnicast() const noexcept { return !isWildcard() && !isMulticast() && !isBroadcast(); }

    String toString() const; ///< The form that `fromString()` reads.

    /// Whether family and bytes are the same. The scope says where an address is reached, not which address it is.
    friend bool operator==(const IPAddress& a, const IPAddress& b) noexcept
    {
        return a._family == b._family && a._bytes == b._bytes;
    }

private:
    std::array<std::uint8_t, 16> _bytes {}; // Zero behind `length()`.
    Family _family = Family::IPv4;
    std::uint32_t _scope = 0;
};

} // namespace fn
