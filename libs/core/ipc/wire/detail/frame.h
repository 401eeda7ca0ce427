#pragma once
#include "base/byte_array.h"
#include <array>
#include <cstddef>
#include <span>

namespace ipc {

/// An encoded frame: up to three parts that follow one another on the wire. Receivers of the same message share it.
class Frame {
public:
    static constexpr std::size_t maxParts = 3; ///< The bytes before a large byte array, the array, the bytes behind it.

    void add(fn::ByteArray part) { _parts[_count++] = std::move(part); }
    std::span<const fn::ByteArray> parts() const noexcept { return { _parts.data(), _count }; }
    std::size_t count() const noexcept { return _count; }
    std::uint8_t* begin() { return _parts[0].mutableData(); } ///< The first part, for the maker of the frame to write.

private:
    std::array<fn::ByteArray, maxParts> _parts;
    std::size_t _count = 0;
};

} // namespace ipc
