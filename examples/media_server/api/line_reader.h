#pragma once
#include "foundation/run_loop.h"
#include <folly/Function.h>
#include <memory>
#include <optional>
#include <string>

namespace media {

/// Reads standard input line by line, on a thread of its own: whatever it is (a terminal, a pipe, a file), the loop does not
/// wait for it. One at a time; the thread stays until there is something to read, or the process ends.
class FN_EXPORT LineReader {
public:
    /// Called on the loop, with each line without its end, and once with nothing at the end.
    using OnLine = folly::Function<void(std::optional<std::string>&& line)>;

    LineReader(fn::RunLoop& loop, OnLine onLine); ///< The loop outlives the process's reading.
    LineReader(const LineReader&) = delete;
    LineReader& operator=(const LineReader&) = delete;
    ~LineReader(); ///< Nothing is called any more. Loop thread.

private:
    std::shared_ptr<OnLine> _onLine; // The tasks hold it weakly.
};

} // namespace media
