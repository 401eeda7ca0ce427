#pragma once
#include "foundation/duration.h"
#include "foundation/value.h"
#include <optional>

namespace ipc {

/// When a module whose process has ended, hangs or does not connect is launched again. The default: a second later, for ever, but it is
/// given up at its second time-out ever, and where it exits before it has connected in a later launch than the first.
///
///     { .delay = 500ms, .growth = 2, .resetAfter = fn::Duration::seconds(60), .limit = 5, .within = fn::Duration::seconds(300) }
struct RelaunchPolicy {
    fn::Duration delay = fn::Duration::seconds(1); ///< From the end to the first launch after it.
    double growth = 1; ///< Each further delay is so many times as long; 1 at least.
    fn::Duration mostDelay = fn::Duration::seconds(60); ///< What grows ends here.
    /// Once it has been connected for so long, a module counts as one that was never launched again: the delay is the first one, and all
    /// its ends are forgotten. 0: never.
    fn::Duration resetAfter {};
    /// It is given up where it would be launched again more often than this; how it has ended does not matter then. 0: it is
    /// launched once. None: the two rules of the default.
    std::optional<int> limit {};
    fn::Duration within {}; ///< What is counted for `limit`: relaunches of so long before. 0: all.
};

/// How a module is run.
struct ModuleOptions {
    /// For the module alone, which has them as `ipc::Module::parameters()`: any value that can be sent. A structure: `ipc::toValue()`.
    /// Nil: none.
    fn::Value parameters {};
    bool inMainProcess = false; ///< A library of the main process, which can be neither stopped nor launched again.
    bool isOptional = false; ///< The application goes on where it is given up: that is no fatal error.
    bool isStarted = true; ///< False: it waits for `ModuleManager::startModule()`.
    RelaunchPolicy relaunch {}; ///< When it is started again, and when it is given up.
};

} // namespace ipc
