#include "foundation/io/input_stream.h"
#include "base/exceptions.h"
#include <algorithm>

namespace fn {
namespace {
constexpr std::size_t firstPiece = 64 * 1024;
}

InputStream::~InputStream() = default;

void InputStream::throwEndOfStream(std::size_t missing) const
{
    throw with(EndOfStreamException("Unexpected end of stream"),
        DetailInfo { fmt::format("Offset: {}, missing bytes: {}", position(), missing) });
}

void InputStream::readExactlySlow(void* data, std::size_t size)
{
    auto* next = static_cast<std::uint8_t*>(data);
    while (size > 0) {
        const auto got = read(next, size);
        if (got == 0) throwEndOfStream(size);
        next += got;
        size -= got;
    }
}

ByteArray InputStream::readByteArray(std::size_t size)
{
    ByteArray bytes;
    // The size may be a lie: the array grows with the bytes that really come.
    for (std::size_t filled = 0; filled < size;) {
        const auto piece = std::min(size - filled, std::max(filled, firstPiece));
        bytes.resizeUninitialized(filled + piece);
        readExactly(bytes.mutableData() + filled, piece);
        filled += piece;
    }
    return bytes;
}

void InputStream::skip(std::size_t size)
{
    const auto inWindow = std::min(size, static_cast<std::size_t>(_windowEnd - _window));
    _window += inWindow;
    size -= inWindow;
    std::uint8_t unwanted[4096];
    while (size > 0) {
        const auto piece = std::min(size, sizeof unwanted);
        readExactly(unwanted, piece);
        size -= piece;
    }
}

std::optional<std::uint64_t> InputStream::remaining() const { return std::nullopt; }

} // namespace fn
