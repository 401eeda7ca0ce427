#pragma once
#include <cstdint>
#include <cstring>

namespace fn::internal {

/// Sets 16 bytes by one write. Strings, byte arrays and values are moved by one read of as many, right after they have been
/// made: that read would wait until separate writes of the parts have reached the cache, longer than all else it costs.
inline void storeWords(void* to, std::uint64_t first, std::uint64_t second) noexcept
{
    typedef std::uint64_t Pair __attribute__((vector_size(16)));
    const Pair pair { first, second };
    std::memcpy(to, &pair, sizeof pair);
}

} // namespace fn::internal
