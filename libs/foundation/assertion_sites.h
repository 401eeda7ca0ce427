#pragma once

namespace fn {

/// The place of a check of an invariant. Crash reports are grouped by `file` and `line`, which therefore keep their values when
/// the code moves.
struct AssertionSite {
    const char* file;
    int line;
    const char* function;
    const char* expression;
};

/// The sites of all layers. A crash report names one of them.
namespace sites {

// foundation
inline constexpr AssertionSite eventFiresOnce { "libs/foundation/signal", 197, "fireOnce",
    "fireOnce(...) can only be called once per event" };
inline constexpr AssertionSite promiseHasOneHandler { "libs/foundation/promise", 277, "then",
    "There can only be one fulfillment and rejection handler" };
inline constexpr AssertionSite promiseHasOneCancellation { "libs/foundation/promise", 308, "onCancel",
    "Cancellation handler already set" };
inline constexpr AssertionSite promiseIsOnMainThread { "libs/foundation/promise", 482, "then",
    "Function must be called on main thread" };
inline constexpr AssertionSite promiseHasLoop { "libs/foundation/promise", 482, "then",
    "Function must be called on main thread, and no loop runs on it" };
inline constexpr AssertionSite coroutineHasOneThread { "libs/foundation/coroutine", 1, "resume",
    "A coroutine is resumed on the thread that began it" };
inline constexpr AssertionSite scopeEndsFromOutside { "libs/foundation/coroutine", 2, "~Scope",
    "A scope can not end inside one of its own coroutines" };
inline constexpr AssertionSite poolTakesTasks { "libs/foundation/thread_pool", 1, "schedule",
    "Can not schedule task on stopped thread pool" };
inline constexpr AssertionSite poolHasFinished { "libs/foundation/thread_pool", 2, "stop", "_unfinished == 0" };
inline constexpr AssertionSite loopHasOneThread { "libs/foundation/uv/loop", 1, "run", "one thread runs the loop" };
inline constexpr AssertionSite loopIsClosed { "libs/foundation/uv/loop", 2, "closeHandles",
    "uv_loop_close(&_uv) == 0" };
inline constexpr AssertionSite loopIsThere { "libs/foundation/uv/loop", 3, "run",
    "a loop that is being destroyed does not run" };
inline constexpr AssertionSite loopIsOfThisProcess { "libs/foundation/uv/loop", 4, "wake",
    "a simulated loop is its own process's alone" };

// core/services
inline constexpr AssertionSite applicationIsKnown { "libs/core/app_info", 1, "core::AppInfo::instance", "initialized" };
inline constexpr AssertionSite integrationIsRunning { "libs/core/g_main_context_integration", 1, "quit",
    "_refCount > 0" };
inline constexpr AssertionSite imageHasPixels { "libs/core/image", 117, "BufferImage",
    "format != Image::Format::JPEG && format != Image::Format::YUV_420 && format != Image::Format::YUV_422 && "
    "format != Image::Format::YUV_444" };
inline constexpr AssertionSite profileHasSink { "libs/core/logging_profile", 1, "setSink", "sink" };
inline constexpr AssertionSite simpleSinkHasTarget { "libs/core/logging_profile", 2, "SimpleSink", "target" };
inline constexpr AssertionSite formattedSinkHasTarget { "libs/core/logging_profile", 3, "FormattedSink", "target" };
inline constexpr AssertionSite throttledSinkHasSink { "libs/core/logging_profile", 4, "ThrottledSink", "sink" };
inline constexpr AssertionSite preventerBeginsOnLoop { "libs/core/sleep_preventer", 1, "SleepPreventer",
    "Function must be called on main thread" };
inline constexpr AssertionSite preventerEndsOnLoop { "libs/core/sleep_preventer", 2, "~SleepPreventer",
    "Function must be called on main thread" };

// core/ipc
inline constexpr AssertionSite registryIsFirst { "libs/core/ipc/dispatcher", 100, "workerDidConnect",
    "this->_registry->objectId() == REGISTRY_OBJECT_ID" };
inline constexpr AssertionSite releasedIsCounted { "libs/core/ipc/dispatcher", 177, "releaseInstance",
    "info != _instanceUsageCount.end()" };
inline constexpr AssertionSite objectIsReferenced { "libs/core/ipc/dispatcher", 229, "onReferenceRelease",
    "ref != _referenceUsageCount.end()" };
inline constexpr AssertionSite workerHoldsObject { "libs/core/ipc/dispatcher", 235, "onReferenceRelease",
    "count != ref->second.end()" };
inline constexpr AssertionSite workerHoldsAsMany { "libs/core/ipc/dispatcher", 236, "onReferenceRelease",
    "count->second >= usageCount" };
inline constexpr AssertionSite moduleEndsItsScope { "libs/core/ipc/module", 1, "~Module",
    "A module's scope ends before the members of the derived class" };
inline constexpr AssertionSite moduleRunsOnce { "libs/core/ipc/module_manager", 52, "launch", "!_process" };
inline constexpr AssertionSite instanceHasReference { "libs/core/ipc/object", 15, "replaceInstanesWithReferences",
    "o->localReference()" };
inline constexpr AssertionSite onlyRemoteIsCounted { "libs/core/ipc/object", 72, "increaseUsageCount", "!_instance" };
inline constexpr AssertionSite releasedInstanceIsHeld { "libs/core/ipc/worker", 169, "onMessage", "instance" };
inline constexpr AssertionSite workerIsConnected { "libs/core/ipc/worker", 207, "nextObjectId",
    "Worker must be connected before ObjectInstances can be created" };
inline constexpr AssertionSite endingInstanceIsThere { "libs/core/ipc/worker", 236, "objectInstanceGone", "instance" };
inline constexpr AssertionSite endingReferenceIsThere { "libs/core/ipc/worker", 245, "objectReferenceGone",
    "reference" };
inline constexpr AssertionSite objectIdHasItsSize { "libs/core/ipc/worker", 377, "deserializeValue",
    "size == sizeof(ObjectId)" };
inline constexpr AssertionSite ownObjectIsThere { "libs/core/ipc/worker", 384, "deserializeValue", "i" };

// core/simulation
inline constexpr AssertionSite worldIsRunFromOutside { "libs/core/simulation/world", 1, "turn",
    "a world is not run by its own processes" };

} // namespace sites
} // namespace fn
