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

/// Reads a body of `size` bytes; fractions of a microsecond are dropped. `fn::DataFormatException` if the body is no timestamp,
/// or one that a Timestamp cannot hold.
Timestamp readTimestamp(std::uint32_t size, InputStream& stream);

} // namespace fn::mpack
