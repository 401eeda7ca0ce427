#pragma once
#include "foundation/time/timestamp.h"
#include <cstdint>

namespace fn {
class InputStream;
class OutputStream;
} // namespace fn

namespace fn::mpack {

/// Length of the shortest body that holds the timestamp: 4, 8 or 12 bytes.
std::uint32_t timestampBytes(Timestamp timestamp) noexcept;
void writeTimestamp(Timestamp timestamp, OutputStream& stream);

/// A body of `size` bytes; fractions of a microsecond are dropped. What is no timestamp, or beyond what one holds:
/// `fn::DataFormatException`.
Timestamp readTimestamp(std::uint32_t size, InputStream& stream);

} // namespace fn::mpack
