#include "core/ipc/wire/detail/scanner.h"
#include "base/exceptions.h"
#include "foundation/io/memory_input_stream.h"
#include "foundation/mpack/deserializer.h"

namespace ipc {

namespace code = fn::mpack::code;

namespace {

/// Null for a malformed timestamp, on which decoding the frame would fail. Other extensions are judged by their readers.
const std::uint8_t* checked(const std::uint8_t* begin, const std::uint8_t* end)
{
    if (!end) return nullptr;
    try {
        fn::MemoryInputStream stream(begin, static_cast<std::size_t>(end - begin));
        fn::mpack::Deserializer(stream).deserialize();
        return end;
    } catch (const fn::Exception&) {
        return nullptr;
    }
}

} // namespace

const std::uint8_t* Scanner::skipAll(const std::uint8_t* at, std::uint64_t values, int depth)
{
    if (!enter(values, depth)) return nullptr;
    for (; values > 0 && at; --values) at = skip(at, depth + 1);
    return at;
}

template <typename T> const std::uint8_t* Scanner::skipCounted(const std::uint8_t* at, int valuesEach, int depth)
{
    std::uint64_t count = 0;
    at = read<T>(at, count);
    return at ? skipAll(at, valuesEach * count, depth) : nullptr;
}

const std::uint8_t* Scanner::skipLong(const std::uint8_t* at, int depth)
{
    auto* const begin = at;
    const auto first = *at++;
    if (first < code::FixArray) return skipAll(at, 2 * (first - code::FixMap), depth);
    if (first < code::FixStr) return skipAll(at, first - code::FixArray, depth);
    switch (first) {
    case code::Bin8:
    case code::Str8: return passCounted<std::uint8_t>(at);
    case code::Bin16:
    case code::Str16: return passCounted<std::uint16_t>(at);
    case code::Bin32:
    case code::Str32: return passCounted<std::uint32_t>(at);
    case code::Array16: return skipCounted<std::uint16_t>(at, 1, depth);
    case code::Array32: return skipCounted<std::uint32_t>(at, 1, depth);
    case code::Map16: return skipCounted<std::uint16_t>(at, 2, depth);
    case code::Map32: return skipCounted<std::uint32_t>(at, 2, depth);
    case code::FixExt1: return checked(begin, pass(at, 1 + 1));
    case code::FixExt2: return checked(begin, pass(at, 1 + 2));
    case code::FixExt4: return checked(begin, pass(at, 1 + 4));
    case code::FixExt8: return checked(begin, pass(at, 1 + 8));
    case code::FixExt16: return checked(begin, pass(at, 1 + 16));
    case code::Ext8: return checked(begin, passCounted<std::uint8_t>(at, 1));
    case code::Ext16: return checked(begin, passCounted<std::uint16_t>(at, 1));
    case code::Ext32: return checked(begin, passCounted<std::uint32_t>(at, 1));
    default: return nullptr;
    }
}

} // namespace ipc
