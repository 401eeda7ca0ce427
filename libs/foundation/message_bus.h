#pragma once
#include "foundation/signal.h"
#include "foundation/value.h"
#include <optional>

namespace fn {

/// The process-wide publish/subscribe bus. Bodies are posted under a namespace of words joined by '.'; a sticky body is kept as
/// the latest of its namespace, for listeners that come later.
///
/// A listener of a namespace hears it and everything below it: "com.x" hears "com.x" and "com.x.y", not "com.xy". General
/// listeners hear a message before special ones, each in connection order.
///
/// Listeners and sticky bodies belong to the process, not to the installed instance. This plain bus delivers at once, on
/// the poster's thread; a bus that spans processes overrides `sendMessage()` and delivers when the message comes back.
/// Belongs to the thread of the default run loop, which is the main thread unless that loop runs on another. The post
/// functions and `instance()` may be called from any thread; elsewhere a post becomes a task of that loop.
class FN_EXPORT MessageBus {
public:
    using MessageSignal = Signal<String, Value>; ///< Arguments: the namespace posted to, the body.

    MessageBus() = default;
    MessageBus(const MessageBus&) = delete;
    MessageBus& operator=(const MessageBus&) = delete;
    virtual ~MessageBus(); ///< If this bus is installed, the plain local bus is put back.

    static MessageBus& instance(); ///< This process's; made at the first call, never destroyed.

    /// Installs `bus`, which sends all posted messages from then on. `bus` is borrowed, and must outlive its installation.
    static void setInstance(MessageBus& bus);

    /// Puts the plain local bus back if `bus` is installed: for an owner who destroys `bus` later.
    static void removeInstance(MessageBus& bus);

    /// Posts the kept sticky bodies of this process once more, so that a newly installed bus carries them to other processes.
    /// The error of a body that cannot be sent goes to `fn::unhandledException()`; the body stays in this process.
    static void repostStickyMessages();

    /// Tells everybody who listens. Where the bus spans processes, that is in all of them.
    void postMessage(const String& name, Value body);
    /// The same, and the latest body of each name is kept: `getStickyMessage()`.
    void postStickyMessage(const String& name, Value body);
    /// The latest body that was posted so; none if there was none.
    std::optional<Value> getStickyMessage(const String& name) const;
    MessageSignal& onMessage(const String& name); ///< Fires with name and body of each message of that name.

protected:
    /// Called for every message that is posted in this process. Default: delivers the message in this process.
    virtual void sendMessage(const String& name, Value&& body, bool sticky);

    /// Delivers a message to this process's listeners and keeps a sticky body. Does nothing on a bus that is not
    /// installed, so that nobody hears a message twice.
    void receiveMessage(const String& name, const Value& body, bool sticky);

private:
    void post(const String& name, Value body, bool sticky);
};

} // namespace fn
