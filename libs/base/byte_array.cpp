#include "base/byte_array.h"
#include "base/detail/large_blocks.h"
#include "base/exceptions.h"
#include <cstdlib>
#include <functional>
#include <glib.h>
#include <limits>
#include <memory>
#include <new>

namespace fn {
namespace {

constexpr std::size_t largestSize = std::numeric_limits<std::uint32_t>::max();

void checkSize(std::size_t size)
{
    if (size > largestSize) throw RangeException("Byte array is too long");
}

bool isLargeBlock(std::size_t size) noexcept
{
    return size >= largeBlocks::leastBytes && size <= largeBlocks::mostBytes;
}

bool isBlank(char c) noexcept { return c == ' ' || (c >= '\t' && c <= '\r'); }
bool isBase64Digit(char c) noexcept
{
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '+' || c == '/';
}

} // namespace

ByteArray::Buffer* ByteArray::allocate(std::size_t capacity, Fill fill)
{
    auto size = sizeof(Buffer) + capacity;
    void* memory = nullptr;
    if (fill == Fill::Zero) {
        memory = std::calloc(1, size); // Writes nothing to a large block: fresh pages are zero.
    } else if (isLargeBlock(size)) {
        size = largeBlocks::blockSize(size);
        memory = largeBlocks::allocate(size);
    } else {
        memory = std::malloc(size);
    }
    if (!memory) throw std::bad_alloc();
    return new (memory) Buffer { 1, static_cast<std::uint32_t>(size - sizeof(Buffer)) };
}

ByteArray::Buffer* ByteArray::reallocate(Buffer* buffer, std::size_t capacity)
{
    void* memory = std::realloc(static_cast<void*>(buffer), sizeof(Buffer) + capacity);
    if (!memory) throw std::bad_alloc();
    auto* moved = static_cast<Buffer*>(memory);
    moved->capacity = static_cast<std::uint32_t>(capacity);
    return moved;
}

void ByteArray::free(Buffer* buffer) noexcept
{
    const auto size = sizeof(Buffer) + buffer->capacity;
    // All buffers come from malloc() in the end. Those that have exactly the size of a block are kept for the next ones.
    if (isLargeBlock(size) && largeBlocks::blockSize(size) == size)
        largeBlocks::free(buffer, size);
    else
        std::free(buffer);
}

ByteArray::ByteArray(unsigned int size) : _buffer(size ? allocate(size, Fill::Zero) : nullptr), _size(size) { }

ByteArray::Buffer* ByteArray::copyOf(const void* data, std::size_t size)
{
    if (size == 0) return nullptr;
    checkSize(size);
    auto* const buffer = allocate(size, Fill::None);
    std::memcpy(buffer->bytes(), data, size);
    return buffer;
}

std::uint8_t* ByteArray::mutableData()
{
    makeOwn(_size);
    return _buffer ? _buffer->bytes() + _offset : const_cast<std::uint8_t*>(&noByte); // The array is empty.
}

void ByteArray::makeOwnSlow(std::size_t capacity)
{
    checkSize(capacity);
    if (!_buffer) {
        if (capacity > 0) _buffer = allocate(capacity, Fill::None);
    } else if (!_buffer->isUnique()) {
        auto* own = allocate(std::max<std::size_t>(capacity, _size), Fill::None);
        std::memcpy(own->bytes(), data(), _size);
        release();
        _buffer = own;
        _offset = 0;
    } else if (_buffer->capacity - _offset < capacity) {
        if (_offset > 0) std::memmove(_buffer->bytes(), data(), _size);
        _offset = 0;
        if (_buffer->capacity < capacity) _buffer = reallocate(_buffer, capacity);
    }
}

void ByteArray::reserve(std::size_t capacity) { makeOwn(std::max<std::size_t>(capacity, _size)); }

void ByteArray::resize(std::size_t size)
{
    const std::size_t oldSize = _size;
    resizeUninitialized(size);
    if (size > oldSize) std::memset(_buffer->bytes() + _offset + oldSize, 0, size - oldSize);
}

void ByteArray::append(const void* data, std::size_t size)
{
    if (size == 0) return;
    if (size > largestSize - _size) throw RangeException("Byte array is too long");
    const auto newSize = _size + size;
    ByteArray keepSource;
    if (capacity() < newSize) {
        const auto* source = static_cast<const std::uint8_t*>(data);
        const bool isOwn = _buffer && std::less_equal<>()(_buffer->bytes(), source)
            && std::less<>()(source, _buffer->bytes() + _buffer->capacity);
        if (isOwn) keepSource = *this; // The buffer is about to be replaced.
        makeOwn(std::max(newSize, std::min(largestSize, _size + std::size_t(_size) / 2)));
    }
    std::memcpy(_buffer->bytes() + _offset + _size, data, size);
    _size = static_cast<std::uint32_t>(newSize);
}

void ByteArray::clear() noexcept
{
    if (isShared()) release(), _buffer = nullptr;
    _offset = 0;
    _size = 0;
}

ByteArray ByteArray::slice(std::size_t offset, std::size_t size) const noexcept
{
    offset = std::min<std::size_t>(offset, _size);
    size = std::min<std::size_t>(size, _size - offset);
    if (size == 0) return {};
    retain();
    return { _buffer, static_cast<std::uint32_t>(_offset + offset), static_cast<std::uint32_t>(size) };
}

String ByteArray::hex() const
{
    return String::build(std::size_t(_size) * 2, [this](char* text) {
        constexpr char digits[] = "0123456789abcdef";
        for (const auto byte : bytes()) {
            *text++ = digits[byte >> 4];
            *text++ = digits[byte & 15];
        }
    });
}

String ByteArray::base64(int lineLength) const
{
    struct Free {
        void operator()(char* text) const noexcept { g_free(text); }
    };
    const std::unique_ptr<char, Free> encoded(g_base64_encode(data(), _size));
    const std::string_view text = encoded.get();
    if (lineLength <= 0) return text;
    const auto line = static_cast<std::size_t>(lineLength);
    const auto breaks = text.empty() ? 0 : (text.size() - 1) / line;
    return String::build(text.size() + 2 * breaks, [&](char* out) {
        for (std::size_t start = 0; start < text.size(); start += line) {
            if (start > 0) *out++ = '\r', *out++ = '\n';
            out = std::ranges::copy(text.substr(start, line), out).out;
        }
    });
}

ByteArray ByteArray::fromBase64(std::string_view text)
{
    // GLib's decoder passes over whatever it does not know, so the text is checked before.
    std::string digits;
    digits.reserve(text.size());
    std::size_t padding = 0;
    for (const char c : text) {
        if (isBlank(c)) continue;
        if (c == '=')
            ++padding;
        else if (!isBase64Digit(c) || padding > 0)
            throw DataFormatException("Invalid Base64 text");
        digits += c;
    }
    if (padding > 2 || digits.size() % 4 != 0) throw DataFormatException("Invalid Base64 text");
    ByteArray result;
    result.resizeUninitialized(digits.size() / 4 * 3);
    int state = 0;
    guint save = 0;
    if (!digits.empty()) {
        result.resizeUninitialized(
            g_base64_decode_step(digits.data(), digits.size(), result.mutableData(), &state, &save));
    }
    return result;
}

ByteArray ByteArray::SHA256() const
{
    ByteArray digest(32);
    gsize size = digest.size();
    GChecksum* checksum = g_checksum_new(G_CHECKSUM_SHA256);
    g_checksum_update(checksum, data(), static_cast<gssize>(_size));
    g_checksum_get_digest(checksum, digest.mutableData(), &size);
    g_checksum_free(checksum);
    return digest;
}

} // namespace fn
