#pragma once
#include "core/ipc_services/command_ipc.h"
#include "core/services/process_lock.h"
#include "foundation/uv/loop.h"
#include <folly/Function.h>
#include <optional>

namespace media {

/// One program of a user runs the modules; other starts of it hand over their commands. Belongs to the loop's thread.
class SingleInstance {
public:
    using OnCommand = folly::Function<void(const fn::Value& command)>;

    SingleInstance();
    SingleInstance(const SingleInstance&) = delete;
    SingleInstance& operator=(const SingleInstance&) = delete;
    ~SingleInstance();

    /// True if this is the program that runs the modules; false if `command` has been handed to the program that does. Waits some
    /// seconds for a program that is just starting or ending, then throws `fn::RuntimeException`.
    bool beginOrHandOver(fn::uv::Loop& loop, const fn::Value& command);

    static bool isRunning(); ///< Whether some program runs the modules.

    void accept(OnCommand onCommand); ///< From now on this program takes commands of other starts.
    void close(); ///< This program takes no more commands: later starts wait for its end.

    /// `close()`, unless there is more to do: waits until no start is handing over a command and all commands have been told, and then
    /// asks. Gives whether this program is closed. So no command is lost that another start believes to have handed over.
    fn::Promise<bool> closeUnless(folly::Function<bool()> hasMore);

private:
    std::optional<core::ProcessLock> _lock; // Held until this process ends.
    fn::AutoPtr<core::CommandIPC> _commands;
    fn::Handle _connection;
};

} // namespace media
