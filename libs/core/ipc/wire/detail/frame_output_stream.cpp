#include "core/ipc/wire/detail/frame_output_stream.h"
#include "base/exceptions.h"
#include <algorithm>
#include <cstdint>
#include <fmt/format.h>

namespace ipc {
namespace {

// The least size of a buffer, in bytes. Most frames are calls, answers and events with up to 64 bytes of content: they fit into one.
constexpr std::size_t leastCapacity = 176;

[[noreturn]] void throwTooLarge(std::size_t bodyBytes, std::size_t bound)
{
    throw fn::RangeException(
        fmt::format("A message of {} bytes is larger than the {} bytes that its receiver takes", bodyBytes, bound));
}

} // namespace

FrameOutputStream::FrameOutputStream(std::size_t expectedBytes)
{
    startBuffer(headerBytes + std::max(leastCapacity, expectedBytes));
    _window += headerBytes;
}

void FrameOutputStream::startBuffer(std::size_t capacity)
{
    auto& part = _frame.next();
    part.resizeUninitialized(capacity);
    _window = _buffer = part.mutableData();
    _windowEnd = _buffer + capacity;
}

void FrameOutputStream::endBuffer()
{
    if (!_window) return;
    const auto size = static_cast<std::size_t>(_window - _buffer);
    _frame.next().resizeUninitialized(size);
    _frame.add();
    _finishedBytes += size;
    _window = _windowEnd = _buffer = nullptr;
}

void FrameOutputStream::writeSlow(const void* data, std::size_t size)
{
    if (size == 0) return;
    makeRoom(size);
    write(data, size);
}

void FrameOutputStream::makeRoom(std::size_t bytes)
{
    const auto used = static_cast<std::size_t>(_window - _buffer);
    startBuffer(std::max({ leastCapacity, _frame.next().size() * 2, used + bytes }));
    _window += used;
}

void FrameOutputStream::writeShared(const fn::ByteArray& bytes)
{
    if (bytes.size() < sharedFrom || _frame.count() > 0) {
        write(bytes.data(), bytes.size());
        return;
    }
    endBuffer();
    _frame.next() = bytes;
    _frame.add();
    _finishedBytes += bytes.size();
}

void FrameOutputStream::replace(std::size_t offset, const void* data, std::size_t size)
{
    std::memcpy(begin() + headerBytes + offset, data, size);
}

/// The first byte of the frame's header.
std::uint8_t* FrameOutputStream::begin() { return _frame.count() == 0 ? _buffer : _frame.begin(); }

Frame FrameOutputStream::finish(std::size_t maxBytes)
{
    const auto bodyBytes = size();
    const auto bound = std::min<std::size_t>(maxBytes, UINT32_MAX);
    if (bodyBytes > bound) throwTooLarge(bodyBytes, bound);
    auto* const header = begin();
    for (std::size_t byte = 0; byte < headerBytes; ++byte)
        header[byte] = static_cast<std::uint8_t>(bodyBytes >> (8 * byte));
    endBuffer();
    return std::move(_frame);
}

} // namespace ipc
