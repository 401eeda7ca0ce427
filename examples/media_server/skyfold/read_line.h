#pragma once
#include "foundation/promise.h"
#include <optional>
#include <string>

namespace media {

inline constexpr std::size_t longestLine = 4096; ///< Bytes. A longer line comes in parts.

/// The next line of standard input, without its end; empty at the end of the input. The loop does not wait for the line, from a
/// terminal, a pipe or a file: a thread of the pool does, until there are bytes to read or the process ends. Reads no byte behind
/// the line. One call at a time.
fn::Promise<std::optional<std::string>> readLine();

} // namespace media
