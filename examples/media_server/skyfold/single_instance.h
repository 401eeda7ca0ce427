#pragma once
#include "core/ipc_services/command_ipc.h"
#include "core/services/process_lock.h"
#include "foundation/uv/loop.h"
#include <folly/Function.h>
#include <optional>

namespace media {

/// One program of a user runs the modules; other starts hand it what they are asked to do. Loop thread.
class SingleInstance {
public:
    using OnCommand = folly::Function<void(const fn::Value& command)>;

    SingleInstance();
    SingleInstance(const SingleInstance&) = delete;
    SingleInstance& operator=(const SingleInstance&) = delete;
    ~SingleInstance();

    /// Whether this is the program that runs the modules. Where it is not, `command` has been handed to the one that does.
    /// Waits for one that is just starting or ending, for some seconds; then `fn::RuntimeException`.
    bool beginOrHandOver(fn::uv::Loop& loop, const fn::Value& command);

    static bool isRunning(); ///< Whether some program runs the modules.

    void accept(OnCommand onCommand); ///< From now on the first takes what others are asked to do.
    void close(); ///< It takes nothing more: those that come now wait for its end.

    /// Calls `goesOn` once nobody is just handing something over and all that was handed over has been told. Where that is false
    /// nothing more is taken: nobody is told that he has handed over what is then lost.
    void whenQuiet(fn::uv::Loop& loop, folly::Function<bool()> goesOn);

private:
    std::optional<core::ProcessLock> _lock; // Held until this process ends.
    fn::AutoPtr<core::CommandIPC> _commands;
    fn::Handle _connection;
    fn::Handle _nextAttempt; // To find it quiet.
};

} // namespace media
