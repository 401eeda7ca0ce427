#pragma once
#include "core/ipc_services/command_ipc.h"
#include "core/services/process_lock.h"
#include "foundation/promise.h"
#include "foundation/uv/loop.h"
#include <folly/Function.h>
#include <functional>
#include <optional>

namespace ipc {

/// One program of a user runs an application; other starts of it hand over their commands, by core::CommandIPC. So do applications
/// of one family (`core::AppInfo::commonId()`). Belongs to the loop's thread; `core::AppInfo` is initialized.
class FN_EXPORT SingleInstance {
public:
    /// Hears what another start hands over.
    using OnCommand = folly::Function<void(const fn::Value& command)>;

    SingleInstance();
    SingleInstance(const SingleInstance&) = delete;
    SingleInstance& operator=(const SingleInstance&) = delete;
    ~SingleInstance();

    /// What a start of the program is.
    enum class Role { First, Second };

    /// First if this program runs the application from now on; Second if `command` has been handed to the program that does. Waits
    /// some seconds for a program that is just starting or ending, then throws `fn::RuntimeException`. Runs the loop; if
    /// `isCancelled()` then says so: nothing.
    std::optional<Role> begin(fn::uv::Loop& loop, const fn::Value& command, const std::function<bool()>& isCancelled);

    static bool isRunning(); ///< Whether some program of the user runs the application.

    void accept(OnCommand onCommand); ///< From now on this program takes commands of other starts.
    void close(); ///< This program takes no more commands: later starts wait for its end.

    /// `close()`, unless there is more to do: waits until no start is handing over a command and all commands have been told, and then
    /// asks. Gives whether this program is closed. So no command is lost that another start believes to have handed over.
    fn::Promise<bool> closeUnless(folly::Function<bool()> hasMore);

private:
    bool isOthers();

    bool _wasOthers = false; // At the last look.
    std::optional<core::ProcessLock> _lock; // Held until this process ends.
    fn::AutoPtr<core::CommandIPC> _commands;
    fn::Handle _connection;
};

} // namespace ipc
