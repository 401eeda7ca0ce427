#pragma once
#include "foundation/duration.h"
#include "foundation/ref_counted.h"
#include "foundation/signal.h"
#include "foundation/uv/pipe_stream.h"
#include "foundation/value.h"
#include <folly/Function.h>
#include <memory>

namespace core {

/// A pipe by which processes of this user hand commands to an application that runs: each command is one value in one
/// frame (docs/wire-format.md), and nothing is answered.
///
/// Trust: the bytes are hostile. Peers of another user are refused before they are read; a breach closes its connection.
/// Commands are bounded in size, connections in number and in how long they may stay without a command.
///
/// Belongs to the loop that runs where `bind()` is called, or to the default loop where none does yet.
class FN_EXPORT CommandIPC final : public fn::RefCountedObject {
public:
    static constexpr std::size_t maxCommandBytes = std::size_t(4) << 20; ///< Encoded.
    static constexpr std::size_t maxConnections = 256; ///< At a time; who comes then is closed.
    static constexpr fn::Duration silenceLimit = fn::Duration::seconds(30); ///< For the next command of a connection.

    CommandIPC();

    /// Makes the endpoint of this user and listens. What stands there already is moved aside. `fn::IOException` where it
    /// can not be made. Binding again replaces the endpoint.
    void bind();

    /// Stops listening and puts back what `bind()` moved aside, unless somebody has made an endpoint of his own meanwhile.
    /// Connections that are open may still bring commands. Before `bind()`: `fn::NullPointerException`.
    void stop();

    /// A command. Its callbacks may call `stop()` and let go of this object.
    fn::Signal<fn::Value>& onCommand() { return _onCommand; }

    /// Hands `command` to whoever listens. `done` is called once, on a later turn, when that is over, well or not: what went
    /// wrong is in the log alone. On the loop that runs here, else on the default loop; should that end first, `done` is
    /// dropped.
    static void send(fn::Value command, folly::Function<void()> done);

private:
    ~CommandIPC() override;
    static fn::String pipePath();
    void moveAside(const fn::String& path);
    void putBack();
    void accept();

    fn::Signal<fn::Value> _onCommand;
    fn::AutoPtr<fn::uv::PipeStream> _listener;
    fn::String _backupPath; // Empty unless something was moved aside.
    const std::shared_ptr<std::size_t> _connections; // How many are open; shared with them.
};

} // namespace core
