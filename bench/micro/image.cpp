// Do copies of images move at the speed of memory? Beside each copy the same bytes are moved by memcpy: into a new block, as
// the copy does it, and into one that is there already. The counters are the time of memcpy divided by that of the copy.
#include "core/image/buffer_image.h"
#include "driver/driver.h"
#include <benchmark/benchmark.h>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace {

using core::BufferImage;
using core::Image;
using Seconds = std::chrono::duration<double>;
using ImagePtr = fn::AutoPtr<Image>;

struct Free {
    void operator()(void* block) const noexcept { std::free(block); }
};
using Block = std::unique_ptr<void, Free>;

template <typename Action> double timed(Action&& action)
{
    const auto start = std::chrono::steady_clock::now();
    action();
    return Seconds(std::chrono::steady_clock::now() - start).count();
}

ImagePtr image(std::int64_t width, std::int64_t height)
{
    const auto size = static_cast<unsigned int>(width * height);
    const auto chroma = size / 4;
    fn::ByteArray planes[3] { fn::ByteArray(size), fn::ByteArray(chroma), fn::ByteArray(chroma) };
    for (auto& plane : planes) std::memset(plane.mutableData(), 0x5a, plane.size());
    const auto stride = static_cast<unsigned int>(width);
    return fn::makeAuto<BufferImage>(Image::Format::YUV_420, stride, static_cast<unsigned int>(height),
        std::array { stride, stride / 2, stride / 2 }, std::array { planes[0], planes[1], planes[2] },
        core::Fraction(1, 1));
}

/// Moves what a copy of the image takes: in one piece where there is nothing between the rows, else row by row.
void moveBytes(const Image& from, void* const to[3])
{
    for (unsigned int plane = 0; plane < from.planeCount(); ++plane) {
        const std::size_t row = from.width() >> from.horizontalSubsampling(plane);
        const std::size_t rows = from.height() >> from.verticalSubsampling(plane);
        auto* const first = static_cast<unsigned char*>(to[plane]);
        if (from.stride(plane) == row)
            std::memcpy(first, from.data(plane), rows * row);
        else
            for (std::size_t y = 0; y < rows; ++y)
                std::memcpy(first + y * row, from.data(plane) + y * from.stride(plane), row);
        benchmark::DoNotOptimize(to[plane]);
    }
    benchmark::ClobberMemory();
}

/// The blocks last for the call, as the copies that are timed do.
void moveBytesIntoNewBlocks(const Image& from)
{
    Block blocks[3];
    void* to[3] {};
    for (unsigned int plane = 0; plane < from.planeCount(); ++plane) {
        blocks[plane].reset(std::malloc(
            (from.width() >> from.horizontalSubsampling(plane)) * (from.height() >> from.verticalSubsampling(plane))));
        to[plane] = blocks[plane].get();
    }
    moveBytes(from, to);
}

template <typename Copy> void compare(benchmark::State& state, const Image& from, Copy copy)
{
    const ImagePtr there = copy();
    void* const to[3] { there->mutableData(0), there->mutableData(1), there->mutableData(2) };
    double move = 0;
    double moveToNew = 0;
    double copied = 0;
    const auto moveToNewBlocks = [&] { moveToNew += timed([&] { moveBytesIntoNewBlocks(from); }); };
    bool copyFirst = false; // In turn, since who comes later finds more in the caches.
    for (auto _ : state) {
        move += timed([&] { moveBytes(from, to); });
        if (!copyFirst) moveToNewBlocks();
        const auto time = timed([&] {
            const ImagePtr made = copy();
            if (made->data(2)[made->size(2) - 1] != 0x5a) bench::fail("copied differently");
        });
        if (copyFirst) moveToNewBlocks();
        copyFirst = !copyFirst;
        copied += time;
        state.SetIterationTime(time);
    }
    const auto bytes = there->size(0) + there->size(1) + there->size(2);
    state.SetBytesProcessed(static_cast<std::int64_t>(bytes) * state.iterations());
    state.counters["of memcpy"] = moveToNew / copied;
    state.counters["of memcpy in place"] = move / copied;
}

void cloneImage(benchmark::State& state)
{
    const auto source = image(state.range(0), state.range(1));
    compare(state, *source, [&] { return source->clone({}, 0); });
}

/// From an image half again as wide: row by row, between strides that differ.
void cloneRectangle(benchmark::State& state)
{
    const auto width = static_cast<std::uint32_t>(state.range(0));
    const auto height = static_cast<std::uint32_t>(state.range(1));
    const auto larger = image(width * 3 / 2, height);
    const auto rectangle = larger->subImage(width / 4, 0, width, height);
    compare(state, *rectangle, [&] { return rectangle->clone({}, 0); });
}

void deepCopy(benchmark::State& state)
{
    const auto source = image(state.range(0), state.range(1));
    compare(state, *source, [&] { return fn::makeAuto<BufferImage>(*source); });
}

/// Half in the second-level cache of most machines; a frame of a film; larger than any cache.
void sizes(benchmark::internal::Benchmark* benchmark)
{
    benchmark->UseManualTime()->Args({ 512, 256 })->Args({ 3840, 2160 })->Args({ 7680, 4320 });
}
BENCHMARK(cloneImage)->Apply(sizes);
BENCHMARK(cloneRectangle)->Apply(sizes);
BENCHMARK(deepCopy)->Apply(sizes);

} // namespace
