#pragma once
#include "core/services/app_identity.h"
#include "foundation/duration.h"
#include "foundation/value.h"
#include <functional>
#include <optional>
#include <vector>

namespace ipc {

/// What a main program says of itself. (Every member has an initialiser, so that GCC does not warn of those that are left out.)
struct ApplicationOptions {
    fn::String name {}; ///< For people; the id by default.
    fn::String id {}; ///< By default the file name of the program, in lower case. See core::AppIdentity.
    fn::String version {}; ///< By default "0".
    fn::String description {}; ///< For `--help`: what the program does. Lines are kept.
    fn::String usage {}; ///< For `--help`: what follows the program's own options, such as "[FOLDER]".
    std::vector<fn::String> modules {}; ///< Each in a process of its own. `Application::addModule()` says more of one.

    /// Whether one program of a user runs at a time: another start hands its command to that program and ends.
    bool isSingle = false;
    /// What this start hands over if another one runs; nil: a map with its "arguments" and its "folder", in which it was started.
    fn::Value command {};
    /// Called then; by default it prints "Handed over to the NAME that is running."
    std::function<void()> onHandedOver {};

    /// Messages up to this priority are shown on standard error, 0 to 7. By default 2, warnings.
    std::optional<int> logPriority {};
    bool isVerbose = false; ///< Whether verbose logging profiles take messages from the start.
    /// A module that is silent for so long is started anew.
    fn::Duration notRespondingTimeout = fn::Duration::seconds(30);
    fn::Duration graceTime = fn::Duration::seconds(2); ///< How long modules may take to end.

    /// Name, id and version, with their defaults. `fn::RuntimeException` that says which of them is not as it must be.
    core::AppIdentity identity() const;
};

} // namespace ipc
