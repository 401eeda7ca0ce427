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

ImagePtr image(Image::Format format, std::int64_t width, std::int64_t height)
{
    const auto size = static_cast<unsigned int>(width * height);
    const auto chroma = size / 4;
    fn::ByteArray planes[3] { fn::ByteArray(size), fn::ByteArray(chroma), fn::ByteArray(chroma) };
    for (auto& plane : planes) std::memset(plane.mutableData(), 0x5a, plane.size());
    const auto stride = static_cast<unsigned int>(width);
    return fn::makeAuto<BufferImage>(format, stride, static_cast<unsigned int>(height),
        std::array { stride, stride / 2, stride / 2 }, std::array { planes[0], planes[1], planes[2] },
        core::Fraction(1, 1));
}

std::size_t bytesOf(const Image& image)
{
    std::size_t bytes = 0;
    for (unsigned int plane = 0; plane < image.planeCount(); ++plane) bytes += image.size(plane);
    return bytes;
}

void moveBytes(const Image& from, void* const to[3])
{
    for (unsigned int plane = 0; plane < from.planeCount(); ++plane) {
        std::memcpy(to[plane], from.data(plane), from.size(plane));
        benchmark::DoNotOptimize(to[plane]);
    }
    benchmark::ClobberMemory();
}

/// The planes are as large as the image's, and last for the call.
void moveBytesIntoNewBlocks(const Image& from)
{
    Block blocks[3];
    for (unsigned int plane = 0; plane < from.planeCount(); ++plane) blocks[plane].reset(std::malloc(from.size(plane)));
    moveBytes(from, std::array { blocks[0].get(), blocks[1].get(), blocks[2].get() }.data());
}

template <typename Copy> void compare(benchmark::State& state, Copy copy)
{
    const auto source = image(Image::Format::YUV_420, state.range(0), state.range(1));
    const auto there = fn::makeAuto<BufferImage>(*source);
    void* const to[3] { there->mutableData(0), there->mutableData(1), there->mutableData(2) };
    double copies = 0;
    double moves = 0;
    double movesToNew = 0;
    for (auto _ : state) {
        moves += timed([&] { moveBytes(*source, to); });
        movesToNew += timed([&] { moveBytesIntoNewBlocks(*source); });
        const auto time = timed([&] {
            const auto made = copy(*source);
            if (made->data(2)[made->size(2) - 1] != 0x5a) bench::fail("copied differently");
        });
        copies += time;
        state.SetIterationTime(time);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(bytesOf(*source)) * state.iterations());
    state.counters["of memcpy"] = movesToNew / copies;
    state.counters["of memcpy in place"] = moves / copies;
}

void cloneImage(benchmark::State& state)
{
    compare(state, [](const Image& source) { return source.clone({}, 0); });
}

/// A rectangle of an image half again as large: row by row, from strides that are not the copy's.
void cloneRectangle(benchmark::State& state)
{
    const auto width = static_cast<unsigned int>(state.range(0));
    const auto height = static_cast<unsigned int>(state.range(1));
    const auto larger = image(Image::Format::YUV_420, width * 3 / 2, height);
    const auto rectangle = larger->subImage(width / 4, 0, width, height);
    compare(state, [&](const Image&) { return rectangle->clone({}, 0); });
}

void deepCopy(benchmark::State& state)
{
    compare(state, [](const Image& source) { return fn::makeAuto<BufferImage>(source); });
}

/// Half in the second-level cache of most machines; a frame of a film; larger than any cache.
void sizes(benchmark::internal::Benchmark* benchmark)
{
    benchmark->UseManualTime()->Args({ 512, 256 })->Args({ 3840, 2160 })->Args({ 15360, 8640 });
}
BENCHMARK(cloneImage)->Apply(sizes);
BENCHMARK(cloneRectangle)->Apply(sizes);
BENCHMARK(deepCopy)->Apply(sizes);

} // namespace
