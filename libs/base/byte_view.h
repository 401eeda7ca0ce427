#pragma once
#include <cstdint>
#include <span>

namespace fn {

/// Bytes that belong to somebody else and are borrowed for the call. `ByteArray::bytes()` gives one.
using ByteView = std::span<const std::uint8_t>;

} // namespace fn
