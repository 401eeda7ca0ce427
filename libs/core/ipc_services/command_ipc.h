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
/// Trust: the bytes are hostile. Peers of another user are refused before they are read; a peer that breaks a rule is closed.
/// Commands are bounded in size, connections in number and in how long they may stay without a command. A client beyond the
/// number is not turned away: it waits. Commands of a connection that was accepted are read.
///
/// Belongs to the loop that runs in the thread that calls `bind()`, or to the default loop if none runs there.
class FN_EXPORT CommandIPC final : public fn::RefCountedObject {
public:
    static constexpr std::size_t maxCommandBytes = std::size_t(4) << 20; ///< Of the encoded command.
    static constexpr std::size_t maxConnections = 256; ///< At a time; `backlog` others wait until there is room.
    static constexpr int backlog = 128; ///< While so many wait, `send()` tries again and again to connect.
    static constexpr fn::Duration silenceLimit = fn::Duration::seconds(30); ///< For the next command of a connection.
    /// The limit for the next command while other clients wait for room.
    static constexpr fn::Duration crowdedSilenceLimit = fn::Duration::seconds(1);
    static constexpr fn::Duration sendLimit = fn::Duration::seconds(30); ///< For all of one `send()`.

    CommandIPC();

    /// Makes the endpoint of this user and listens. A file that stands in its place is moved aside. `fn::IOException` if the
    /// endpoint can not be made. Binding again replaces the endpoint.
    void bind();

    /// Stops listening and puts back the file that `bind()` moved aside. If another server has bound the endpoint meanwhile, that
    /// server puts the file back when it stops: whatever the order in which several servers stop, the last one restores what
    /// stood there first.
    ///
    /// Clients that wait are accepted first, however many connections are open, and commands that have arrived are signalled
    /// before this returns. Open connections may still bring commands. Before `bind()`: `fn::NullPointerException`.
    ///
    /// Destroying the server closes its connections, and stops it if need be, but drops commands that were not yet read.
    void stop();

    /// Fires with each command. Listeners may call `stop()` and let go of this object.
    fn::Signal<fn::Value>& onCommand() { return _onCommand; }

    /// Sends `command` to the server that listens. `done` is called once, on a later turn of the loop, whether that has succeeded
    /// or failed; a failure is only logged. Success means that the system has taken the command for a server that listens; the
    /// server may end before it reads it. While the server has no room this waits, up to `sendLimit`.
    ///
    /// Uses the loop that runs in this thread, or else the default loop, which must then be run; if the loop ends first, `done`
    /// is dropped.
    static void send(fn::Value command, folly::Function<void()> done);

    /// Sends `command` likewise. Fulfilled on success, rejected with an `fn::IOException` that says why it failed.
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
    fn::String _backupPath; // Where the file in the endpoint's place was moved; empty if there was none.
    std::uint64_t _inode = 0; // Of the endpoint, by which it is found when another server has moved it aside.
    bool _admitsAll = false; // While the listener ends, connections beyond the bound are accepted, too.
    std::vector<detail::CommandConnection*> _connections; // The open connections. Each removes itself.
    bool _othersWait = false; // Clients wait until one of the connections has closed.
};

} // namespace core
