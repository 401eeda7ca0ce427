#include "core/command_ipc.h"
#include "core/ipc/wire/message_helper.h"
#include "foundation/io/file.h"
#include "foundation/logging/logging.h"
#include "foundation/system/environment.h"
#include "foundation/system/uuid.h"
#include "foundation/uv/timer.h"
#include "foundation/weak_ptr.h"

namespace core {
namespace {

constexpr auto site = "libs/core/command_ipc";
constexpr int backlog = 128;

const fn::logging::Category& category()
{
    static const auto& result = fn::logging::CategoryManager::instance().getCategory("core.commandIPC");
    return result;
}

fn::uv::Loop& loopHere()
{
    auto* const current = fn::RunLoop::currentLoop();
    return (current ? *current : fn::RunLoop::defaultLoop()).uvLoop();
}

/// A client of the server. Its timer holds it, and runs as long as the stream is open; it does not need the server.
class Connection final : public fn::RefCountedObject {
public:
    Connection(CommandIPC& server, fn::uv::Loop& loop, std::shared_ptr<std::size_t> count)
        : _stream(fn::makeAuto<fn::uv::PipeStream>(loop, false)),
          _messageHelper(CommandIPC::maxCommandBytes),
          _loop(loop),
          _server(&server),
          _count(std::move(count))
    {
        ++*_count;
    }

    void start(fn::uv::PipeStream& listener)
    {
        _stream->accept(listener);
        _messageHelper.onEOS().connect([this] { close(); }).detach();
        _messageHelper.onReadError().connect([this](const fn::uv::Status& status) { fail(status); }).detach();
        _messageHelper.onMessage().connect([this](const fn::Value& command, unsigned) { receive(command); }).detach();
        _messageHelper.setStream(_stream);
        awaitCommand();
    }

    /// It may be gone afterwards.
    void close()
    {
        const fn::AutoPtr self(this);
        _stream->close();
        _self.invalidate();
    }

private:
    ~Connection() override { --*_count; }

    void awaitCommand()
    {
        _self =
            fn::uv::Timer::schedule(_loop, CommandIPC::silenceLimit, [self = fn::AutoPtr(this)] { self->onSilence(); });
    }

    void receive(const fn::Value& command)
    {
        const fn::AutoPtr self(this);
        _hasSpoken = true;
        const auto server = _server.lock();
        if (!server) return close();
        awaitCommand();
        server->onCommand().fire(command);
    }

    /// A loop that was busy finds the timer due while the command lies unread.
    void onSilence()
    {
        const fn::AutoPtr self(this);
        _hasSpoken = false;
        _stream->readPending();
        if (_hasSpoken || _stream->isClosed()) return;
        FN_LOG_TO(category(), fn::logging::Warning, {}, site, "Closed a connection that brought no command in time");
        close();
    }

    void fail(const fn::uv::Status& status)
    {
        FN_LOG_TO(category(), fn::logging::Warning, {}, site, "Closed a connection: {}", status.what().view());
        close();
    }

    fn::AutoPtr<fn::uv::PipeStream> _stream;
    ipc::MessageHelper _messageHelper;
    fn::Handle _self; // The timer.
    fn::uv::Loop& _loop;
    const fn::WeakPtr<CommandIPC> _server;
    const std::shared_ptr<std::size_t> _count;
    bool _hasSpoken = false;
};

/// One `CommandIPC::send()`. What it waits for holds it.
class IPCSender final : public fn::RefCountedObject {
public:
    IPCSender(fn::Value command, fn::uv::Loop& loop, folly::Function<void()> done)
        : _command(std::move(command)),
          _stream(fn::makeAuto<fn::uv::PipeStream>(loop, false)),
          _messageHelper(0), // Nothing is answered; a server that does is not listened to.
          _done(std::move(done))
    {
    }

    void start(const fn::String& pipePath)
    {
        _stream->connect(pipePath, [self = fn::AutoPtr(this)](const fn::uv::Status& status) {
            if (status.ok())
                self->write();
            else
                self->finish(status.what());
        });
    }

private:
    ~IPCSender() override = default;

    void write()
    {
        try {
            _messageHelper.setStream(_stream);
            const auto onWritten = [self = fn::AutoPtr(this)](const fn::uv::Status& status) {
                self->finish(status.ok() ? fn::String() : status.what());
            };
            _messageHelper.send(_command, onWritten, CommandIPC::maxCommandBytes);
        } catch (const std::exception& exception) {
            finish(exception.what()); // No value of the wire's, or too large: nothing was written.
        }
    }

    void finish(const fn::String& error)
    {
        if (!error.empty()) FN_LOG_TO(category(), fn::logging::Error, {}, site, "CommandIPC failed: {}", error.view());
        _stream->close();
        auto done = std::exchange(_done, {});
        if (done) done();
    }

    const fn::Value _command;
    fn::AutoPtr<fn::uv::PipeStream> _stream;
    ipc::MessageHelper _messageHelper;
    folly::Function<void()> _done;
};

} // namespace

CommandIPC::CommandIPC() : _connections(std::make_shared<std::size_t>(0)) { }

CommandIPC::~CommandIPC()
{
    if (_listener) stop(); // It may have been closed by the end of its loop.
}

fn::String CommandIPC::pipePath()
{
    return R"(\\.\pipe\)" + fn::String("skyfold-command-ipc.") + fn::Environment::userName();
}

void CommandIPC::bind()
{
    _listener = fn::makeAuto<fn::uv::PipeStream>(loopHere(), false);
    const auto path = pipePath();
    moveAside(path);
    _listener->bind(path);
    _listener->listen(backlog, [this](const fn::uv::Status& status) {
        status.throwOnError();
        accept();
    });
}

void CommandIPC::moveAside(const fn::String& path)
{
    try {
        const fn::File file(path);
        if (!file.exists()) return;
        _backupPath = path + ".bk-" + fn::UUIDGenerator::defaultGenerator().createOne().toString();
        file.moveTo(_backupPath);
    } catch (const std::exception&) {
        // What can not be moved is told by the bind that follows.
    }
}

void CommandIPC::accept()
{
    const auto connection = fn::makeAuto<Connection>(*this, loopHere(), _connections);
    connection->start(*_listener);
    if (*_connections <= maxConnections) return;
    FN_LOG_TO(category(), fn::logging::Warning, {}, site, "Closed a connection: {} others are open", maxConnections);
    connection->close();
}

void CommandIPC::stop()
{
    _listener->close({});
    putBack();
}

/// The endpoint was removed when it was closed, if it still was ours. What stands in its place now is another server's.
void CommandIPC::putBack()
{
    if (_backupPath.empty()) return;
    try {
        const auto path = pipePath();
        if (!fn::File(path).exists()) fn::File(_backupPath).moveTo(path);
    } catch (const std::exception&) {
        // What was moved aside has been removed.
    }
}

/*static*/ void CommandIPC::send(fn::Value command, folly::Function<void()> done)
{
    fn::makeAuto<IPCSender>(std::move(command), loopHere(), std::move(done))->start(pipePath());
}

} // namespace core
