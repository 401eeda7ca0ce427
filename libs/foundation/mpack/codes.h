#pragma once
#include <array>
#include <bit>
#include <concepts>
#include <cstdint>
#include <cstring>

namespace fn::mpack {

/// First bytes of the MessagePack forms. Those of FixInt, FixMap, FixArray and FixStr hold a number in their low bits.
namespace code {
inline constexpr std::uint8_t PositiveFixInt = 0x00, FixMap = 0x80, FixArray = 0x90, FixStr = 0xA0;
inline constexpr std::uint8_t Nil = 0xC0, False = 0xC2, True = 0xC3;
inline constexpr std::uint8_t Bin8 = 0xC4, Bin16 = 0xC5, Bin32 = 0xC6;
inline constexpr std::uint8_t Ext8 = 0xC7, Ext16 = 0xC8, Ext32 = 0xC9;
inline constexpr std::uint8_t Float32 = 0xCA, Float64 = 0xCB;
inline constexpr std::uint8_t UInt8 = 0xCC, UInt16 = 0xCD, UInt32 = 0xCE, UInt64 = 0xCF;
inline constexpr std::uint8_t Int8 = 0xD0, Int16 = 0xD1, Int32 = 0xD2, Int64 = 0xD3;
inline constexpr std::uint8_t FixExt1 = 0xD4, FixExt2 = 0xD5, FixExt4 = 0xD6, FixExt8 = 0xD7, FixExt16 = 0xD8;
inline constexpr std::uint8_t Str8 = 0xD9, Str16 = 0xDA, Str32 = 0xDB;
inline constexpr std::uint8_t Array16 = 0xDC, Array32 = 0xDD, Map16 = 0xDE, Map32 = 0xDF;
inline constexpr std::uint8_t NegativeFixInt = 0xE0;
} // namespace code

/// The bytes that a value takes, by its first byte; 0 where that byte does not tell them, and for extensions.
inline constexpr auto plainSizes = [] {
    std::array<std::uint8_t, 256> sizes {};
    for (std::size_t first = 0; first < sizes.size(); ++first) {
        if (first < code::FixMap || first >= code::NegativeFixInt) sizes[first] = 1;
        if (first >= code::FixStr && first < code::Nil)
            sizes[first] = static_cast<std::uint8_t>(1 + first - code::FixStr);
    }
    sizes[code::Nil] = sizes[code::False] = sizes[code::True] = 1;
    sizes[code::UInt8] = sizes[code::Int8] = 1 + 1;
    sizes[code::UInt16] = sizes[code::Int16] = 1 + 2;
    sizes[code::UInt32] = sizes[code::Int32] = sizes[code::Float32] = 1 + 4;
    sizes[code::UInt64] = sizes[code::Int64] = sizes[code::Float64] = 1 + 8;
    return sizes;
}();

inline constexpr std::int8_t timestampType = -1; ///< Extension type of a timestamp.
inline constexpr std::int8_t plainType = -1; ///< What a hook answers for a value that is to be plain.

/// Numbers are big-endian on the wire.
template <std::unsigned_integral T> T bigEndian(T value) noexcept
{
    if constexpr (std::endian::native == std::endian::little && sizeof(T) > 1) value = std::byteswap(value);
    return value;
}

} // namespace fn::mpack
