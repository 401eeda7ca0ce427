#include "core/services/resource_hash.h"
#include "base/file_descriptor.h"
#include "base/posix.h"
#include "foundation/io/file.h"
#include "foundation/system/sha1_engine.h"
#include <algorithm>
#include <array>
#include <cstdint>
#include <fcntl.h>
#include <span>
#include <unistd.h>
#include <vector>

namespace core {
namespace {

constexpr std::int64_t sampleBytes = 0x10000;
constexpr std::int64_t sampleCount = 5;
constexpr std::int64_t sampledFrom = sampleCount * sampleBytes; // Smaller files are read whole.

std::int64_t seek(const fn::FileDescriptor& file, std::int64_t offset, int origin)
{
    const auto position = ::lseek(file.get(), offset, origin);
    if (position < 0) fn::File::handleErrno(file.path());
    return position;
}

/// Hashes the whole buffer. The part that the file does not fill, since it has shrunk meanwhile, counts as zeros.
void hashStretch(fn::SHA1Engine& engine, const fn::FileDescriptor& file, std::int64_t offset, int origin,
    std::span<std::uint8_t> buffer)
{
    seek(file, offset, origin);
    auto rest = buffer;
    while (!rest.empty()) {
        const auto count = fn::posix::read(file.get(), rest.data(), rest.size());
        if (count < 0) fn::File::handleErrno(file.path());
        if (count == 0) break;
        rest = rest.subspan(static_cast<std::size_t>(count));
    }
    std::ranges::fill(rest, std::uint8_t { 0 });
    engine.update(buffer.data(), buffer.size());
}

void hashSize(fn::SHA1Engine& engine, std::int64_t size)
{
    std::array<std::uint8_t, 8> bytes;
    for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<std::uint8_t>(size >> (8 * i));
    engine.update(bytes.data(), bytes.size());
}

} // namespace

fn::String ResourceHash::forFile(const fn::String& path)
{
    // Without O_NONBLOCK a pipe without a writer would block here; so the seek in it fails.
    const fn::FileDescriptor file(fn::posix::open(path, O_RDONLY | O_NONBLOCK, 0), path);
    if (!file) fn::File::handleErrno(path);

    fn::SHA1Engine engine;
    const auto size = seek(file, 0, SEEK_END);
    hashSize(engine, size);

    std::vector<std::uint8_t> storage(static_cast<std::size_t>(size < sampledFrom ? size : sampleBytes));
    const std::span buffer(storage);
    if (size < sampledFrom) {
        hashStretch(engine, file, 0, SEEK_SET, buffer);
    } else {
        const auto step = size / sampleCount;
        for (std::int64_t i = 0; i < sampleCount; ++i) hashStretch(engine, file, i * step, SEEK_SET, buffer);
        const auto tail = std::min(step - sampleBytes, sampleBytes);
        if (tail > 0) hashStretch(engine, file, -tail, SEEK_END, buffer.first(static_cast<std::size_t>(tail)));
    }
    return engine.digest().hex();
}

} // namespace core
