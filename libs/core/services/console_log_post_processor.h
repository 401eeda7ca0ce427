#pragma once
#include "base/exceptions.h"
#include "base/export.h"
#include "base/string.h"
#include "foundation/duration.h"

namespace core {

/// Lets callbacks see, rewrite and suppress, line by line, everything that this process writes to its standard error,
/// whichever library writes it, and everything that programs write which have inherited it.
///
/// Descriptor 2 becomes a pipe. A thread reads the pipe, gives each line to the callbacks, and writes the result to the former
/// standard error. A line waits until its line feed has come, or 64 MiB, which are passed on as they are. The end of the process
/// does not wait for the thread: without `quit()` the last lines may be lost. Reports of a sanitizer are not lost: they go to
/// the former standard error.
///
/// A callback runs on that thread, also while the process ends. It gets the line with its line feed, as the callbacks before it
/// have left it; a line that becomes empty is not written. A callback must neither log nor write to standard error: that would
/// be a new line for it, and would hang while the pipe is full. An exception is told on the former standard error; the line
/// goes on.
class FN_EXPORT ConsoleLogPostProcessor {
public:
    ConsoleLogPostProcessor() = delete;

    /// Redirects standard error and starts the thread. To be called once and early: after a second redirection each line passes
    /// the callbacks twice. Failures leave standard error as it was: `fn::IOException`, and `std::system_error` if the thread
    /// can not be started.
    static void init();

    /// Ends the latest redirection: restores the former standard error, and waits until the lines written before have been passed
    /// on, `most` at most, since programs that have inherited the pipe keep it open. Does nothing without `init()`.
    static void quit(fn::Duration most);

    /// Adds a callback behind the others; the same one may be added several times. Thread-safe.
    static void registerStandardErrorCallback(void (*callback)(fn::String&));

    /// Removes a callback, however often it was added. It may still get a line that is being handled. Thread-safe.
    static void unregisterStandardErrorCallback(void (*callback)(fn::String&));

    /// The function of the thread: returns at the end of the pipe; at once if each redirection has its reader.
    static void runStandardError();
};

} // namespace core
