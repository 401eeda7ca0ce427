#pragma once
#include "base/exceptions.h"
#include "base/export.h"
#include "base/string.h"
#include "foundation/duration.h"

namespace core {

/// Lets callbacks see, rewrite and suppress, line by line, everything that this process writes to its standard error,
/// whichever library writes it, and what the programs write that inherit it.
///
/// Descriptor 2 becomes a pipe. A thread reads it, takes each line through the callbacks and writes what remains to the
/// standard error as it was before. A line without its line feed waits for it (or for 64 MiB, which are passed on as they
/// are). The end of the process does not wait for the thread: the last lines may be lost without `quit()`. Of a sanitizer's reports none
/// is, they go to the standard error from before.
///
/// A callback runs on that thread, also while the process ends. It gets the line with its line feed, as its predecessors
/// left it; an empty one is not written. It must neither log nor write to standard error: that is a new line for it, and
/// while the pipe is full it waits for itself. What it throws is told on the standard error from before; the line goes on.
class FN_EXPORT ConsoleLogPostProcessor {
public:
    ConsoleLogPostProcessor() = delete;

    /// Redirects standard error and starts the thread. Call it once and early; a second redirection stands in front of
    /// the first, so that each line meets the callbacks twice. Failures leave standard error as it was: `fn::IOException`,
    /// and `std::system_error` where the thread can not be started.
    static void init();

    /// Ends the latest redirection: puts standard error back as it was before, and waits until what was written until then has
    /// been passed on; no longer than `most`, since programs that have inherited the pipe keep it open. Without `init()` nothing.
    static void quit(fn::Duration most);

    /// Adds a callback behind the others, also when it is among them already. Thread-safe.
    static void registerStandardErrorCallback(void (*callback)(fn::String&));

    /// Removes a callback, as often as it was added. It may still see a line that is under way. Thread-safe.
    static void unregisterStandardErrorCallback(void (*callback)(fn::String&));

    /// What the thread runs: returns at the end of the pipe, at once where every redirection has its reader.
    static void runStandardError();
};

} // namespace core
