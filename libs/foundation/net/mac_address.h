#pragma once
#include "base/exceptions.h"
#include "base/string.h"
#include <array>

namespace fn {

class IPAddress;

/// The hardware address of a network adapter: six bytes.
class FN_EXPORT MacAddress {
public:
    static constexpr std::size_t length = 6; ///< In bytes.

    MacAddress() noexcept = default; ///< All zero.
    /// In the order in which they are written.
    explicit MacAddress(const std::array<std::uint8_t, length>& bytes) noexcept : _bytes(bytes) { }

    /// The hardware address of the neighbour that has `address`, as this machine knows it at the moment: the call sends nothing to
    /// the network and does not wait. `fn::IOException` if this machine does not know it. Thread-safe.
    static MacAddress fromIPAddress(const IPAddress& address);

    /// In the order in which they are written.
    const std::array<std::uint8_t, length>& bytes() const noexcept { return _bytes; }
    String toString() const; ///< "00:11:22:aa:bb:cc"

    friend bool operator==(const MacAddress&, const MacAddress&) noexcept = default;

private:
    std::array<std::uint8_t, length> _bytes {};
};

} // namespace fn
