#include "core/ipc/wire/frame_output_stream.h"
#include <algorithm>

namespace ipc {
namespace {

// Most frames are calls and answers with small arguments: one allocation.
constexpr std::size_t initialCapacity = 240;

// Below this, copying is cheaper than one more element of the vectored write.
constexpr std::size_t sharedFrom = 16 * 1024;

} // namespace

FrameOutputStream::FrameOutputStream() { startBuffer(initialCapacity); }

void FrameOutputStream::startBuffer(std::size_t capacity)
{
    _buffer = fn::ByteArray();
    _buffer.resizeUninitialized(capacity);
    _window = _buffer.mutableData();
    _windowEnd = _window + capacity;
}

void FrameOutputStream::endBuffer()
{
    _buffer.resizeUninitialized(static_cast<std::size_t>(_window - _buffer.data()));
    _finishedBytes += _buffer.size();
    if (!_buffer.empty()) _parts.push_back(std::move(_buffer));
    _buffer = fn::ByteArray();
    _window = _windowEnd = nullptr;
}

std::size_t FrameOutputStream::size() const noexcept
{
    return _finishedBytes + (_window ? static_cast<std::size_t>(_window - _buffer.data()) : 0);
}

void FrameOutputStream::writeSlow(const void* data, std::size_t size)
{
    if (size == 0) return;
    const auto used = _window ? static_cast<std::size_t>(_window - _buffer.data()) : 0;
    const auto capacity = std::max({ initialCapacity, _buffer.size() * 2, used + size });
    _buffer.resizeUninitialized(capacity);
    _window = _buffer.mutableData() + used;
    _windowEnd = _buffer.mutableData() + capacity;
    write(data, size);
}

void FrameOutputStream::writeShared(const fn::ByteArray& bytes)
{
    if (bytes.size() < sharedFrom) {
        write(bytes.data(), bytes.size());
        return;
    }
    endBuffer();
    _finishedBytes += bytes.size();
    _parts.push_back(bytes);
}

std::vector<fn::ByteArray> FrameOutputStream::finish()
{
    if (_window) endBuffer();
    const auto length = static_cast<std::uint32_t>(_finishedBytes - 4);
    auto* header = _parts.front().mutableData();
    for (int byte = 0; byte < 4; ++byte) header[byte] = static_cast<std::uint8_t>(length >> (8 * byte));
    return std::move(_parts);
}

} // namespace ipc
