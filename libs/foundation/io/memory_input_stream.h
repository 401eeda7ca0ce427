#pragma once
#include "foundation/io/input_stream.h"

namespace fn {

/// Reads from memory. Made from a ByteArray, it shares that array, and `readByteArray()` gives slices of at least half of it (a
/// smaller one is copied: it would keep a large buffer alive). Other memory is borrowed.
class FN_EXPORT MemoryInputStream final : public InputStream {
public:
    explicit MemoryInputStream(ByteArray bytes); ///< Shares the bytes.
    MemoryInputStream(const void* data, std::size_t size); ///< Borrows the memory.

    ByteArray readByteArray(std::size_t size) override;
    std::optional<std::uint64_t> remaining() const override;
    std::uint64_t position() const override;

private:
    std::size_t readSlow(void* data, std::size_t size) override;

    ByteArray _bytes;
    const std::uint8_t* _begin;
};

} // namespace fn
