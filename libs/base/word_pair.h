#pragma once
#include <cstdint>
#include <cstring>

namespace fn::internal {

/// Sets 16 bytes by one write. Strings, byte arrays and values are often moved right after they were made, by one read of 16
/// bytes. After two writes of 8 bytes it would wait until both have reached the cache: longer than the rest of the move takes.
inline void storeWords(void* to, std::uint64_t first, std::uint64_t second) noexcept
{
    typedef std::uint64_t Pair __attribute__((vector_size(16)));
    const Pair pair { first, second };
    std::memcpy(to, &pair, sizeof pair);
}

} // namespace fn::internal
