#pragma once
#include <cstddef>

/// Memory for large buffers. Blocks that a thread frees are kept for its next buffers, up to a bound: the system gives fresh
/// memory page by page, each with a fault and filled with zeros, which costs more than copying the bytes into it.
/// (With malloc alone a call with an argument of 1 MiB took 1.36 times the processor time of caller, hub and owner, and one of 1,000
/// small ones in flight 1.09 times: medians of 6 rounds in turn.)
namespace fn::largeBlocks {

inline constexpr std::size_t leastBytes = 8 * 1024; ///< Smaller buffers come from malloc().
inline constexpr std::size_t mostBytes = 4 * 1024 * 1024; ///< Larger buffers come from malloc(), too.

/// The size of the block for a buffer of `bytes` (between the bounds): at most a quarter more.
std::size_t blockSize(std::size_t bytes) noexcept;

void* allocate(std::size_t blockSize) noexcept; ///< Null if there is no memory. Not zeroed.
void free(void* memory, std::size_t blockSize) noexcept;

} // namespace fn::largeBlocks
