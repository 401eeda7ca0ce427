#include "foundation/io/buffered_input_stream.h"
#include <algorithm>

namespace fn {

BufferedInputStream::BufferedInputStream(InputStream& source, std::size_t bufferBytes)
    : _source(source),
      _bufferBytes(bufferBytes),
      _buffer(std::make_unique_for_overwrite<std::uint8_t[]>(bufferBytes))
{
    _window = _windowEnd = _buffer.get();
}

BufferedInputStream::~BufferedInputStream() = default;

std::size_t BufferedInputStream::readSlow(void* data, std::size_t size)
{
    if (_window == _windowEnd) {
        const bool direct = size >= _bufferBytes; // The buffer would only add a copy.
        const auto count = direct ? _source.read(data, size) : _source.read(_buffer.get(), _bufferBytes);
        _takenFromSource += count;
        if (direct) return count;
        _window = _buffer.get();
        _windowEnd = _window + count;
    }
    const auto count = std::min(size, static_cast<std::size_t>(_windowEnd - _window));
    std::memcpy(data, _window, count);
    _window += count;
    return count;
}

std::optional<std::uint64_t> BufferedInputStream::remaining() const
{
    auto result = _source.remaining();
    if (result) *result += static_cast<std::uint64_t>(_windowEnd - _window);
    return result;
}

std::uint64_t BufferedInputStream::position() const
{
    return _takenFromSource - static_cast<std::uint64_t>(_windowEnd - _window);
}

} // namespace fn
