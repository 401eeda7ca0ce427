#include "base/detail/large_blocks.h"
#include "base/idle_memory.h"
#include <array>
#include <bit>
#include <cstdlib>
#include <malloc.h>
#include <new>
#include <utility>

namespace fn::largeBlocks {
namespace {

// GCC tells of a sanitizer by macros, Clang by __has_feature.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define FN_KEEPS_NO_BLOCKS
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define FN_KEEPS_NO_BLOCKS
#endif
#endif

#ifdef FN_KEEPS_NO_BLOCKS
constexpr std::size_t keptBytes = 0; // A sanitizer must see memory that is used after it was freed.
#else
constexpr std::size_t keptBytes = 8 * 1024 * 1024; // The most that a thread keeps.
#endif

// Sizes are grouped by the highest bit of the size less one: a power of two is the last size of its group.
constexpr int leastBits = std::bit_width(leastBytes - 1) - 1;
constexpr int mostBits = std::bit_width(mostBytes - 1) - 1;
constexpr std::size_t stepsPerPower = 4;

struct Block {
    Block* next;
};

/// The blocks that a thread keeps. No destructor: buffers are also freed after the thread's other variables have been destroyed.
struct Cache {
    std::array<Block*, (mostBits - leastBits + 1) * stepsPerPower> blocks;
    std::size_t bytes;
    bool isClosed;
    bool wasUsed; // Whether the thread has used a block since the last giveBackIdleMemory().
};
constinit thread_local Cache cache {};

void freeAll() noexcept
{
    for (auto*& first : cache.blocks) {
        while (auto* block = first) {
            first = block->next;
            std::free(block);
        }
    }
    cache.bytes = 0;
}

struct Closer {
    ~Closer()
    {
        cache.isClosed = true;
        freeAll();
    }
    void arm() const noexcept { }
};
thread_local const Closer closer;

std::size_t stepOf(std::size_t bytes) noexcept
{
    return (std::size_t(1) << (std::bit_width(bytes - 1) - 1)) / stepsPerPower;
}

std::size_t placeOf(std::size_t blockSize) noexcept
{
    const auto bits = static_cast<std::size_t>(std::bit_width(blockSize - 1) - 1);
    return (bits - leastBits) * stepsPerPower + (blockSize - 1) / stepOf(blockSize) % stepsPerPower;
}

} // namespace

std::size_t blockSize(std::size_t bytes) noexcept
{
    const auto step = stepOf(bytes);
    return (bytes + step - 1) / step * step;
}

void* allocate(std::size_t blockSize) noexcept
{
    cache.wasUsed = true;
    auto*& first = cache.blocks[placeOf(blockSize)];
    if (!first) return std::malloc(blockSize);
    auto* block = first;
    first = block->next;
    cache.bytes -= blockSize;
    return block;
}

void free(void* memory, std::size_t blockSize) noexcept
{
    if (cache.isClosed || cache.bytes + blockSize > keptBytes) return std::free(memory);
    closer.arm();
    auto*& first = cache.blocks[placeOf(blockSize)];
    first = new (memory) Block { first };
    cache.bytes += blockSize;
}

} // namespace fn::largeBlocks

void fn::giveBackIdleMemory() noexcept
{
    using namespace largeBlocks;
    if (std::exchange(cache.wasUsed, false) || cache.bytes == 0) return;
    freeAll();
    malloc_trim(0); // Most blocks lie inside the heap, which would keep their pages.
}
