#pragma once
#include "base/exceptions.h"
#include "base/ref_counted.h"
#include "foundation/duration.h"
#include "foundation/promise.h"
#include "foundation/signal.h"
#include "foundation/uv/pipe_stream.h"
#include "foundation/value.h"
#include <folly/Function.h>
#include <vector>

namespace core {

namespace detail {
class CommandConnection;
} // namespace detail

/// A pipe by which processes of this user hand commands to an application that runs: each command is one value in one
/// frame (docs/wire-format.md), and nothing is answered.
///
/// Trust: the bytes are hostile. Peers of another user are refused before they are read; a breach closes its connection.
/// Commands are bounded in size, connections in number and in how long they may stay without a command. Nobody is turned away
/// for their number: who comes then waits, and whatever was let in is read.
///
/// Belongs to the loop that runs where `bind()` is called, or to the default loop where none does yet.
class FN_EXPORT CommandIPC final : public fn::RefCountedObject {
public:
    static constexpr std::size_t maxCommandBytes = std::size_t(4) << 20; ///< Encoded.
    static constexpr std::size_t maxConnections = 256; ///< At a time; `backlog` others wait until there is room.
    static constexpr int backlog = 128; ///< Who connects when so many wait tries again by himself, see `send()`.
    static constexpr fn::Duration silenceLimit = fn::Duration::seconds(30); ///< For the next command of a connection.
    static constexpr fn::Duration crowdedSilenceLimit =
        fn::Duration::seconds(1); ///< The same while others wait for room.
    static constexpr fn::Duration sendLimit = fn::Duration::seconds(30); ///< For all of one `send()`.

    CommandIPC();

    /// Makes the endpoint of this user and listens. What stands there already is moved aside. `fn::IOException` where it
    /// can not be made. Binding again replaces the endpoint.
    void bind();

    /// Stops listening and puts back what `bind()` moved aside, unless somebody has made an endpoint of his own meanwhile: it is
    /// his to put back then, so that the last of several servers to stop puts back what stood there first, in whatever order
    /// they do.
    ///
    /// Whoever waits is let in before, however many are open; what all of them have sent is signalled before this returns.
    /// Connections that are open may still bring commands. Before `bind()`: `fn::NullPointerException`.
    ///
    /// Letting go of the server closes them; of one that was not stopped it stops it, but drops what was not yet read.
    void stop();

    /// A command. Its callbacks may call `stop()` and let go of this object.
    fn::Signal<fn::Value>& onCommand() { return _onCommand; }

    /// Hands `command` to whoever listens. `done` is called once, on a later turn, when that is over, well or not: what went
    /// wrong is in the log alone. Well means that the system has taken it for a server that listens; whether that reads it, or
    /// ends before, is not known. A server with no room is waited for within `sendLimit`.
    ///
    /// On the loop that runs here, else on the default loop, which must run for this to go on; should it end first, `done`
    /// is dropped.
    static void send(fn::Value command, folly::Function<void()> done);

    /// The same for those who need to know: fulfilled where it went well, else rejected with the `fn::IOException` that says why.
    static fn::Promise<void> send(fn::Value command);

private:
    friend class detail::CommandConnection;
    ~CommandIPC() override;
    static fn::String pipePath();
    void moveAside(const fn::String& path);
    bool isFull() const noexcept { return _connections.size() >= maxConnections; }
    void onConnection();
    void onRoom();
    void accept();
    void acceptAll();
    void close();
    fn::String movedTo() const;

    fn::Signal<fn::Value> _onCommand;
    fn::AutoPtr<fn::uv::PipeStream> _listener;
    fn::String _backupPath; // Empty unless something was moved aside.
    std::uint64_t _inode = 0; // Of the endpoint: others may move it.
    bool _admitsAll = false; // For the end.
    std::vector<detail::CommandConnection*> _connections; // Those that are open. Each takes itself out.
    bool _othersWait = false; // Until one of these has gone.
};

} // namespace core
