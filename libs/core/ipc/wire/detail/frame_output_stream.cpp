#include "core/ipc/wire/detail/frame_output_stream.h"
#include "base/exceptions.h"
#include <algorithm>
#include <cstdint>
#include <fmt/format.h>

namespace ipc {
namespace {

// The least size of a buffer, in bytes. Most frames are calls and answers with small arguments: they fit into one.
constexpr std::size_t leastCapacity = 112;

} // namespace

FrameOutputStream::FrameOutputStream(std::size_t expectedBytes)
{
    startBuffer(headerBytes + std::max(leastCapacity, expectedBytes));
    _window += headerBytes;
}

std::size_t FrameOutputStream::size() const noexcept
{
    return _finishedBytes + (_window ? static_cast<std::size_t>(_window - _buffer.data()) : 0) - headerBytes;
}

void FrameOutputStream::startBuffer(std::size_t capacity)
{
    _buffer.resizeUninitialized(capacity);
    _window = _buffer.mutableData();
    _windowEnd = _window + capacity;
}

void FrameOutputStream::endBuffer()
{
    if (!_window) return;
    _buffer.resizeUninitialized(static_cast<std::size_t>(_window - _buffer.data()));
    _finishedBytes += _buffer.size();
    _frame.add(std::exchange(_buffer, {}));
    _window = _windowEnd = nullptr;
}

void FrameOutputStream::writeSlow(const void* data, std::size_t size)
{
    if (size == 0) return;
    const auto used = _window ? static_cast<std::size_t>(_window - _buffer.data()) : 0;
    startBuffer(std::max({ leastCapacity, _buffer.size() * 2, used + size }));
    _window += used;
    write(data, size);
}

void FrameOutputStream::writeShared(const fn::ByteArray& bytes)
{
    if (bytes.size() < sharedFrom || _frame.count() > 0) {
        write(bytes.data(), bytes.size());
        return;
    }
    endBuffer();
    _finishedBytes += bytes.size();
    _frame.add(bytes);
}

void FrameOutputStream::replace(std::size_t offset, const void* data, std::size_t size)
{
    std::memcpy(begin() + headerBytes + offset, data, size);
}

/// The first byte of the frame's header.
std::uint8_t* FrameOutputStream::begin()
{
    return _frame.count() == 0 ? _window - size() - headerBytes : _frame.begin();
}

Frame FrameOutputStream::finish(std::size_t maxBytes)
{
    const auto bodyBytes = size();
    const auto bound = std::min<std::size_t>(maxBytes, UINT32_MAX);
    if (bodyBytes > bound) {
        throw fn::RangeException(
            fmt::format("A message of {} bytes is larger than the {} bytes that its receiver takes", bodyBytes, bound));
    }
    auto* const header = begin();
    for (std::size_t byte = 0; byte < headerBytes; ++byte)
        header[byte] = static_cast<std::uint8_t>(bodyBytes >> (8 * byte));
    endBuffer();
    return std::move(_frame);
}

} // namespace ipc
