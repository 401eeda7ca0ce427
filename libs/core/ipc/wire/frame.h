#pragma once
#include "base/byte_array.h"
#include "base/byte_view.h"
#include <array>
#include <cstddef>
#include <span>

namespace ipc {

/// An encoded frame: up to three parts that follow one another on the wire. Receivers of the same message share it.
class Frame {
public:
    static constexpr std::size_t maxParts = 3; ///< What is before a large payload, the payload, what is behind it.

    void add(fn::ByteArray part) { _parts[_count++] = std::move(part); }
    std::span<const fn::ByteArray> parts() const noexcept { return { _parts.data(), _count }; }
    std::size_t count() const noexcept { return _count; }
    std::uint8_t* begin() { return _parts[0].mutableData(); } ///< Of the first part, for who has made the frame.

private:
    std::array<fn::ByteArray, maxParts> _parts;
    std::size_t _count = 0;
};

/// The body of a frame that has been read, borrowed for the time it is handled.
struct FrameBody {
    fn::ByteView bytes;
    const fn::ByteArray* array =
        nullptr; ///< Holds exactly `bytes` where the frame has memory of its own: parts can be shared.
};

} // namespace ipc
