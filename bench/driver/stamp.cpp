#include "driver/stamp.h"
#include "driver/driver.h"
#include <array>
#include <cstring>
#include <fmt/format.h>

namespace bench {
namespace {

using Stamp = std::array<std::uint64_t, 2>;
static_assert(sizeof(Stamp) == stampBytes);

Stamp make(std::uint64_t number, std::size_t size) { return { number, (number ^ size) * 0x9e3779b97f4a7c15u }; }

} // namespace

void stamp(std::span<std::uint8_t> body, std::uint64_t number)
{
    const auto value = make(number, body.size());
    std::memcpy(body.data(), &value, stampBytes);
    std::memcpy(body.data() + body.size() - stampBytes, &value, stampBytes);
}

std::uint64_t readStamp(std::span<const std::uint8_t> body)
{
    if (body.size() < stampBytes) fail(fmt::format("a body of {} bytes arrived", body.size()));
    Stamp first;
    Stamp last;
    std::memcpy(&first, body.data(), stampBytes);
    std::memcpy(&last, body.data() + body.size() - stampBytes, stampBytes);
    if (first != make(first[0], body.size()) || first != last) fail("a broken body arrived");
    return first[0];
}

} // namespace bench
