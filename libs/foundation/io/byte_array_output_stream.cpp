#include "foundation/io/byte_array_output_stream.h"
#include <algorithm>

namespace fn {
namespace {
constexpr std::size_t firstWindow = 64;
}

ByteArrayOutputStream::ByteArrayOutputStream(ByteArray& array) : _array(array) { }

ByteArrayOutputStream::~ByteArrayOutputStream() { ByteArrayOutputStream::flush(); }

std::size_t ByteArrayOutputStream::position() const noexcept
{
    return _window ? static_cast<std::size_t>(_window - _array.data()) : _array.size();
}

void ByteArrayOutputStream::flush()
{
    if (!_window) return;
    _array.resizeUninitialized(position()); // The array shrinks: no byte is moved.
    _window = _windowEnd = nullptr;
}

void ByteArrayOutputStream::writeSlow(const void* data, std::size_t size)
{
    if (size == 0) return;
    grow(size);
    write(data, size);
}

void ByteArrayOutputStream::grow(std::size_t least)
{
    flush();
    const auto content = _array.size();
    if (_array.capacity() - content < least || _array.isShared()) {
        _array.reserve(std::max({ content + least, content + content / 2, firstWindow }));
    }
    _array.resizeUninitialized(_array.capacity());
    _window = _array.mutableData() + content;
    _windowEnd = _array.mutableData() + _array.size();
}

} // namespace fn
