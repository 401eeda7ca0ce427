#include "foundation/io/buffered_output_stream.h"
#include "base/exceptions.h"

namespace fn {

BufferedOutputStream::BufferedOutputStream(OutputStream& target, std::size_t bufferBytes)
    : _target(target),
      _bufferBytes(bufferBytes),
      _buffer(std::make_unique_for_overwrite<std::uint8_t[]>(bufferBytes))
{
    _window = _buffer.get();
    _windowEnd = _window + _bufferBytes;
}

BufferedOutputStream::~BufferedOutputStream() = default;

void BufferedOutputStream::writeBuffered()
{
    const auto size = static_cast<std::size_t>(_window - _buffer.get());
    if (size == 0) return;
    _window = _buffer.get();
    _target.write(_buffer.get(), size);
}

void BufferedOutputStream::writeSlow(const void* data, std::size_t size)
{
    if (_closed) throw IOException("The stream is closed");
    writeBuffered();
    if (size >= _bufferBytes) {
        _target.write(data, size);
    } else {
        std::memcpy(_window, data, size);
        _window += size;
    }
}

void BufferedOutputStream::flush()
{
    writeBuffered();
    _target.flush();
}

void BufferedOutputStream::close(bool flushAll)
{
    if (_closed) return;
    _closed = true;
    writeBuffered();
    _windowEnd = _window;
    if (flushAll) _target.flush();
}

} // namespace fn
