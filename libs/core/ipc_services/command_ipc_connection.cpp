#include "core/ipc_services/detail/command_ipc_connection_private.h"
#include "foundation/logging/logging.h"
#include "foundation/time/clock.h"
#include "foundation/uv/timer.h"
#include <algorithm>

namespace core::detail {
namespace {

FN_LOG_CATEGORY("core.commandIPC");

} // namespace

CommandConnection::CommandConnection(CommandIPC& server, fn::uv::Loop& loop)
    : _stream(fn::makeAuto<fn::uv::PipeStream>(loop, false)),
      _messageHelper(CommandIPC::maxCommandBytes),
      _loop(loop),
      _server(&server)
{
}

CommandConnection::~CommandConnection()
{
    // If the loop has ended before the stream was closed, the server still lists this connection.
    if (const auto server = _server.lock()) std::erase(server->_connections, this);
}

void CommandConnection::start(fn::uv::PipeStream& listener)
{
    _stream->accept(listener);
    _messageHelper.onEOS().connect([this] { close(); }).detach();
    _messageHelper.onReadError().connect([this](const fn::uv::Status& status) { fail(status); }).detach();
    _messageHelper.onMessage().connect([this](const fn::Value& command, unsigned) { receive(command); }).detach();
    _messageHelper.setStream(_stream);
    awaitCommand();
}

/// This connection may be destroyed afterwards.
void CommandConnection::close()
{
    const fn::AutoPtr self(this);
    _stream->close();
    _self.invalidate();
    const auto server = _server.lock();
    if (server && std::erase(server->_connections, this) > 0) server->onRoom();
}

void CommandConnection::awaitCommand()
{
    _silentSince = _loop.clock().monotonic();
    lookAgainLater();
}

void CommandConnection::lookAgainLater()
{
    _self = fn::uv::Timer::schedule(
        _loop, CommandIPC::crowdedSilenceLimit, [self = fn::AutoPtr(this)] { self->onTimer(); });
}

void CommandConnection::receive(const fn::Value& command)
{
    const fn::AutoPtr self(this);
    const auto server = _server.lock();
    if (!server) return close();
    _self.invalidate(); // The time that a listener takes is not counted against the client's next command.
    server->onCommand().fire(command);
    if (!_stream->isClosed()) awaitCommand();
}

bool CommandConnection::othersWait() const
{
    const auto server = _server.lock();
    return server && server->_othersWait;
}

void CommandConnection::onTimer()
{
    const fn::AutoPtr self(this);
    const auto limit = othersWait() ? CommandIPC::crowdedSilenceLimit : CommandIPC::silenceLimit;
    const auto since = _silentSince;
    if (_loop.clock().monotonic() - since < limit) return lookAgainLater();
    _stream->readPending(); // After a busy turn of the loop the command may have arrived unread.
    if (_silentSince != since || _stream->isClosed()) return;
    FN_LOG(Warning, "Closed a connection that brought no command in time");
    _stream->readEnd(); // Reads what the client has written until now; a later write fails.
    close();
}

void CommandConnection::fail(const fn::uv::Status& status)
{
    FN_LOG(Warning, "Closed a connection: {}", status.what().view());
    close();
}

} // namespace core::detail
