#pragma once
#include <cstdint>
#include <cstring>

namespace fn::internal {

/// Sets the 16 bytes that make up a string, a byte array or the content of a value.
inline void storeWords(void* to, std::uint64_t first, std::uint64_t second) noexcept
{
    const std::uint64_t words[] { first, second };
    std::memcpy(to, words, sizeof(words));
}

} // namespace fn::internal
