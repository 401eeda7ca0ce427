#include "foundation/io/memory_input_stream.h"
#include <algorithm>

namespace fn {

MemoryInputStream::MemoryInputStream(ByteArray bytes) : _bytes(std::move(bytes)), _begin(_bytes.data())
{
    _window = _begin;
    _windowEnd = _begin + _bytes.size();
}

MemoryInputStream::MemoryInputStream(const void* data, std::size_t size)
    : _begin(static_cast<const std::uint8_t*>(data))
{
    _window = _begin;
    _windowEnd = _begin + size;
}

std::size_t MemoryInputStream::readSlow(void* data, std::size_t size)
{
    size = std::min(size, static_cast<std::size_t>(_windowEnd - _window));
    if (size > 0) std::memcpy(data, std::exchange(_window, _window + size), size);
    return size;
}

ByteArray MemoryInputStream::readByteArray(std::size_t size)
{
    const auto left = static_cast<std::size_t>(_windowEnd - _window);
    if (size > left) throwEndOfStream(size - left);
    const auto* start = std::exchange(_window, _window + size);
    if (!_bytes.empty() && size >= _bytes.size() - size)
        return _bytes.slice(static_cast<std::size_t>(start - _begin), size);
    return { start, size };
}

std::optional<std::uint64_t> MemoryInputStream::remaining() const
{
    return static_cast<std::uint64_t>(_windowEnd - _window);
}

std::uint64_t MemoryInputStream::position() const { return static_cast<std::uint64_t>(_window - _begin); }

} // namespace fn
