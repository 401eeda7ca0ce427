#include "base/exceptions.h"
#include "foundation/io/input_stream.h"
#include "foundation/io/output_stream.h"
#include "foundation/mpack/codes.h"
#include "foundation/mpack/detail/timestamp_form_private.h"

namespace fn::mpack {
namespace {

constexpr std::int64_t microsecondsPerSecond = 1'000'000;
constexpr std::uint32_t nanosecondsPerSecond = 1'000'000'000;
constexpr int secondsBits = 34; // The low bits of the 8-byte form; nanoseconds are above.

struct Parts {
    std::int64_t seconds;
    std::uint32_t nanoseconds;
};

Parts partsOf(Timestamp timestamp) noexcept
{
    auto seconds = timestamp.microseconds() / microsecondsPerSecond;
    auto rest = timestamp.microseconds() % microsecondsPerSecond;
    if (rest < 0) --seconds, rest += microsecondsPerSecond;
    return { seconds, static_cast<std::uint32_t>(rest * 1000) };
}

template <typename T> void put(OutputStream& stream, T value)
{
    value = bigEndian(value);
    stream.write(&value, sizeof value);
}

template <typename T> T take(InputStream& stream)
{
    T value;
    stream.readExactly(&value, sizeof value);
    return bigEndian(value);
}

Parts readParts(std::uint32_t size, InputStream& stream)
{
    if (size == 4) return { take<std::uint32_t>(stream), 0 };
    if (size == 8) {
        const auto both = take<std::uint64_t>(stream);
        return { static_cast<std::int64_t>(both & ((std::uint64_t(1) << secondsBits) - 1)),
            static_cast<std::uint32_t>(both >> secondsBits) };
    }
    if (size != 12) throw with(DataFormatException("Invalid timestamp"), DetailInfo { fmt::format("Size: {}", size) });
    const auto nanoseconds = take<std::uint32_t>(stream);
    return { static_cast<std::int64_t>(take<std::uint64_t>(stream)), nanoseconds };
}

} // namespace

std::uint32_t timestampBytes(Timestamp timestamp) noexcept
{
    const auto [seconds, nanoseconds] = partsOf(timestamp);
    if (seconds < 0 || seconds >> secondsBits != 0) return 12;
    return nanoseconds == 0 && seconds <= UINT32_MAX ? 4 : 8;
}

void writeTimestamp(Timestamp timestamp, OutputStream& stream)
{
    const auto [seconds, nanoseconds] = partsOf(timestamp);
    switch (timestampBytes(timestamp)) {
    case 4: put(stream, static_cast<std::uint32_t>(seconds)); break;
    case 8: put(stream, std::uint64_t(nanoseconds) << secondsBits | static_cast<std::uint64_t>(seconds)); break;
    default: put(stream, nanoseconds); put(stream, static_cast<std::uint64_t>(seconds));
    }
}

Timestamp readTimestamp(std::uint32_t size, InputStream& stream)
{
    const auto [seconds, nanoseconds] = readParts(size, stream);
    // A time before the epoch is counted from the full second above it: the full second below may be before the earliest timestamp.
    const bool isBefore = seconds < 0;
    const auto rest = static_cast<std::int64_t>(nanoseconds / 1000) - (isBefore ? microsecondsPerSecond : 0);
    std::int64_t microseconds = 0;
    if (nanoseconds >= nanosecondsPerSecond
        || __builtin_mul_overflow(isBefore ? seconds + 1 : seconds, microsecondsPerSecond, &microseconds)
        || __builtin_add_overflow(microseconds, rest, &microseconds)) {
        throw with(DataFormatException("Invalid timestamp"),
            DetailInfo { fmt::format("Seconds: {}, nanoseconds: {}", seconds, nanoseconds) });
    }
    return Timestamp(microseconds);
}

} // namespace fn::mpack
