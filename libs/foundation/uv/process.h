#pragma once
#include "base/exceptions.h"
#include "base/ref_counted.h"
#include "base/string.h"
#include "foundation/uv/loop.h"
#include <cstdint>
#include <vector>

namespace fn::uv {

/// A standard stream of a child. Kind 2 inherits a descriptor of this process; the identifiers -10, -11 and -12 name
/// standard input, output and error.
struct ProcessStream {
    int kind = 2; ///< 0 gives the child nothing to read and swallows what it writes.
    int handle = 0;
};

struct ProcessOptions {
    String file;
    std::vector<String> arguments; ///< The first one is the child's own name.
    /// 0x10 hides a console window where there are such, 0x80 is recorded only: neither changes anything here.
    unsigned flags = 0;
    std::vector<ProcessStream> streams; ///< Descriptors 0, 1, 2 of the child. It inherits no other one.
    folly::Function<void(std::int64_t status, int signal)> onExit; ///< Once, on the loop. Its end frees it.
};

/// A child process. Releasing the last reference while the child runs forgets the callback; the child lives on and is
/// reaped when it ends. A child that outlives the loop is left alone.
class FN_EXPORT Process final : public RefCountedObject {
public:
    explicit Process(Loop& loop);

    void spawn(ProcessOptions options); ///< Once. `fn::IOException` naming the file if it cannot be started.
    void kill(int signal); ///< A child that has ended already is no error.
    int pid() const noexcept; ///< 0 before `spawn()`.

    /// Runs the loop until every child that was started on it has ended and been reaped, also those whose Process was released;
    /// no longer than `most`. False beyond that. Where the loop may be run.
    static bool awaitAll(Loop& loop, Duration most);

    unsigned flags() const noexcept; ///< As given to `spawn()`.

    struct Private;

protected:
    ~Process() override;

private:
    Private* _private;
};

} // namespace fn::uv
