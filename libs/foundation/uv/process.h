#pragma once
#include "base/exceptions.h"
#include "base/ref_counted.h"
#include "base/string.h"
#include "foundation/uv/loop.h"
#include <cstdint>
#include <vector>

namespace fn::uv {

/// A standard stream of a child. Kind 2 inherits the descriptor `handle` of this process; the identifiers -10, -11 and -12 name
/// standard input, output and error.
struct ProcessStream {
    int kind = 2; ///< 0 gives the child nothing to read and swallows what it writes.
    int handle = 0; ///< The parent's descriptor.
};

struct ProcessOptions {
    String file;
    std::vector<String> arguments; ///< The first one is the child's own name.
    /// 0x10 hides a console window on systems that have such windows, 0x80 is only recorded: neither changes anything here.
    unsigned flags = 0;
    std::vector<ProcessStream> streams; ///< Descriptors 0, 1, 2 of the child, which inherits no other one.
    folly::Function<void(std::int64_t status, int signal)> onExit; ///< Called once, on the loop, and then freed.
};

/// A child process. Releasing the last reference while the child runs drops the callback; the child runs on and is reaped when
/// it ends. The end of the loop does not end its children, and does not reap them.
class FN_EXPORT Process final : public RefCountedObject {
public:
    explicit Process(Loop& loop); ///< Starts nothing yet.

    /// Starts the child; to be called once. `fn::IOException` that names the file if the child cannot be started,
    /// `fn::RangeException` for more than three streams or for a stream of another kind.
    void spawn(ProcessOptions options);
    void kill(int signal); ///< Does nothing if the child has ended already.
    int pid() const noexcept; ///< 0 before `spawn()`.
    bool isRunning() const noexcept; ///< From `spawn()` until the child has ended; false inside `onExit`.

    /// Runs the loop until every child that was started on it has ended and been reaped, also a child whose Process was released,
    /// but no longer than `most`. Returns false if a child is left. For a caller that may run the loop.
    static bool awaitAll(Loop& loop, Duration most);

    unsigned flags() const noexcept; ///< As given to `spawn()`.

    struct Private;

protected:
    ~Process() override;

private:
    Private* _private;
};

} // namespace fn::uv
