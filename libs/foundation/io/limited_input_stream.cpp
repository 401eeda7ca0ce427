#include "foundation/io/limited_input_stream.h"
#include <algorithm>

namespace fn {

LimitedInputStream::LimitedInputStream(InputStream& stream, std::size_t size)
    : _stream(stream),
      _size(size),
      _beyond(size)
{
    lendWindow();
}

LimitedInputStream::~LimitedInputStream() { returnWindow(); }

void LimitedInputStream::lendWindow() noexcept
{
    const auto size = std::min(_beyond, static_cast<std::size_t>(_stream._windowEnd - _stream._window));
    _window = _stream._window;
    _windowEnd = _window + size;
    _beyond -= size;
}

void LimitedInputStream::returnWindow() noexcept
{
    if (_window) _stream._window = _window;
    _beyond = left();
    _window = _windowEnd = nullptr;
}

std::size_t LimitedInputStream::readSlow(void* data, std::size_t size)
{
    size = std::min(size, left());
    returnWindow();
    const auto got = _stream.read(data, size);
    _beyond -= got;
    lendWindow();
    return got;
}

ByteArray LimitedInputStream::readByteArray(std::size_t size)
{
    if (size > left()) throwEndOfStream(size - left());
    returnWindow();
    auto bytes = _stream.readByteArray(size);
    _beyond -= size;
    lendWindow();
    return bytes;
}

void LimitedInputStream::finish()
{
    returnWindow();
    _stream.skip(std::exchange(_beyond, 0));
}

std::optional<std::uint64_t> LimitedInputStream::remaining() const
{
    if (const auto rest = _stream.remaining(); rest && *rest < left()) return rest;
    return left();
}

std::uint64_t LimitedInputStream::position() const { return _size - left(); }

} // namespace fn
