#include "foundation/system/uuid.h"
#include "base/exceptions.h"
#include "foundation/uv/system.h"
#include <array>
#include <cerrno>
#include <fmt/format.h>
#include <sys/random.h>
#include <system_error>

namespace fn {
namespace {

void fillRandomly(std::span<unsigned char> bytes)
{
    if (auto* const system = uv::System::current()) return system->fillRandomly(bytes);
    // `getrandom()` waits until the kernel has gathered randomness, and then gives so few bytes in one piece.
    while (::getrandom(bytes.data(), bytes.size(), 0) < 0) {
        const int error = errno;
        if (error != EINTR) throw with(IOException(std::generic_category().message(error)), ErrnoInfo { error });
    }
}

} // namespace

UUID UUIDGenerator::createOne()
{
    std::array<unsigned char, 16> bytes;
    fillRandomly(bytes);
    bytes[6] = (bytes[6] & 0x0f) | 0x40; // Version 4: random.
    bytes[8] = (bytes[8] & 0x3f) | 0x80; // The variant: RFC 4122.

    std::array<char, 36> text;
    auto* out = text.data();
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) *out++ = '-';
        out = fmt::format_to(out, "{:02x}", bytes[i]);
    }
    return UUID(std::string_view(text.data(), text.size()));
}

UUIDGenerator& UUIDGenerator::defaultGenerator()
{
    static UUIDGenerator generator;
    return generator;
}

} // namespace fn
