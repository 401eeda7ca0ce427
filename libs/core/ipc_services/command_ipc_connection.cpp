#include "core/ipc_services/command_ipc_connection_private.h"
#include "foundation/logging/logging.h"
#include "foundation/time/clock.h"
#include "foundation/uv/timer.h"
#include <algorithm>

namespace core::detail {
namespace {

constexpr auto site = "libs/core/command_ipc";

const fn::logging::Category& category()
{
    static const auto& result = fn::logging::CategoryManager::instance().getCategory("core.commandIPC");
    return result;
}

} // namespace

CommandConnection::CommandConnection(
    CommandIPC& server, fn::uv::Loop& loop, std::shared_ptr<CommandConnections> connections)
    : _stream(fn::makeAuto<fn::uv::PipeStream>(loop, false)),
      _messageHelper(CommandIPC::maxCommandBytes),
      _loop(loop),
      _server(&server),
      _connections(std::move(connections))
{
    _connections->open.push_back(this);
}

CommandConnection::~CommandConnection() { std::erase(_connections->open, this); }

void CommandConnection::start(fn::uv::PipeStream& listener)
{
    _stream->accept(listener);
    _messageHelper.onEOS().connect([this] { close(); }).detach();
    _messageHelper.onReadError().connect([this](const fn::uv::Status& status) { fail(status); }).detach();
    _messageHelper.onMessage().connect([this](const fn::Value& command, unsigned) { receive(command); }).detach();
    _messageHelper.setStream(_stream);
    awaitCommand();
}

/// It may be gone afterwards.
void CommandConnection::close()
{
    const fn::AutoPtr self(this);
    _stream->close();
    _self.invalidate();
    if (std::erase(_connections->open, this) == 0) return;
    if (const auto server = _server.lock()) server->onRoom();
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
    _self.invalidate(); // A handler takes its time: what lies behind this command is not late.
    server->onCommand().fire(command);
    if (!_stream->isClosed()) awaitCommand();
}

void CommandConnection::onTimer()
{
    const fn::AutoPtr self(this);
    const auto limit = _connections->othersWait ? CommandIPC::crowdedSilenceLimit : CommandIPC::silenceLimit;
    const auto since = _silentSince;
    if (_loop.clock().monotonic() - since < limit) return lookAgainLater();
    _stream->readPending(); // A loop that was busy finds the timer due while the command lies unread.
    if (_silentSince != since || _stream->isClosed()) return;
    FN_LOG_TO(category(), fn::logging::Warning, {}, site, "Closed a connection that brought no command in time");
    _stream->readEnd(); // Who writes in this moment is read, or knows that he is not.
    close();
}

void CommandConnection::fail(const fn::uv::Status& status)
{
    FN_LOG_TO(category(), fn::logging::Warning, {}, site, "Closed a connection: {}", status.what().view());
    close();
}

} // namespace core::detail
