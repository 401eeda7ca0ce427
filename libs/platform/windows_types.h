#pragma once
#include <cstdint>

/// The integer types of the Windows calls of this layer, with their sizes there.
namespace platform {

using BYTE = std::uint8_t;
using WORD = std::uint16_t;
using DWORD = std::uint32_t;
using ULONG = std::uint32_t;
using LONG = std::int32_t;
using BOOL = std::int32_t; ///< 0 is false.
using HRESULT = std::int32_t;

} // namespace platform
