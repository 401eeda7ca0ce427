#pragma once
#include "foundation/promise.h"
#include "foundation/run_loop.h"
#include <optional>
#include <string>

namespace media {

inline constexpr std::size_t longestLine = 4096; ///< Bytes. What is longer comes in parts.

/// The next line of standard input, without its end; nothing where there is no more. Whatever it is, a terminal, a pipe or a
/// file, the loop does not wait for it: a thread of the pool does, until there is something to read or the process ends.
/// Of what follows the line nothing is taken. One at a time.
fn::Promise<std::optional<std::string>> readLine(fn::RunLoop& loop);

} // namespace media
