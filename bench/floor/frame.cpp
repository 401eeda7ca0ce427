#include "floor/frame.h"
#include <algorithm>

namespace bench::floor {
namespace {
constexpr std::size_t bufferBytes = 64 * 1024;
}

Frame FrameWriter::make(std::uint16_t target, std::uint16_t source, std::size_t bodyBytes, std::size_t frameBytes)
{
    const auto size = std::max(frameBytes, headerBytes + bodyBytes);
    if (_free.size < size) {
        const auto capacity = std::max(bufferBytes, size);
        _free.buffer = std::make_shared_for_overwrite<std::uint8_t[]>(capacity);
        _free.data = _free.buffer.get();
        _free.size = capacity;
    }
    Frame frame;
    frame.buffer = _free.buffer;
    frame.data = _free.data;
    frame.size = size;
    _free.data += size;
    _free.size -= size;
    const FrameHeader header { static_cast<std::uint32_t>(size - lengthBytes), target, source,
        static_cast<std::uint32_t>(bodyBytes) };
    std::memcpy(frame.data, &header, headerBytes);
    std::memset(frame.data + headerBytes + bodyBytes, 0, size - headerBytes - bodyBytes);
    return frame;
}

} // namespace bench::floor
