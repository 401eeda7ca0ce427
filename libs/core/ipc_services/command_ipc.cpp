#include "core/ipc_services/command_ipc.h"
#include "core/ipc/wire/message_helper.h"
#include "core/ipc_services/detail/command_ipc_connection_private.h"
#include "core/services/app_info.h"
#include "foundation/io/directory_iterator.h"
#include "foundation/io/file.h"
#include "foundation/io/path.h"
#include "foundation/logging/logging.h"
#include "foundation/system/environment.h"
#include "foundation/system/uuid.h"
#include "foundation/uv/timer.h"
#include <cerrno>
#include <vector>

namespace core {
namespace {

constexpr auto backupMark = ".bk-"; // Stands between the endpoint's name and a UUID.

FN_LOG_CATEGORY("core.commandIPC");

fn::uv::Loop& loopHere()
{
    auto* const current = fn::RunLoop::currentLoop();
    return (current ? *current : fn::RunLoop::defaultLoop()).uvLoop();
}

/// Runs `action`, whose failure does no harm.
template <typename Action> void attempt(Action action)
{
    try {
        action();
    } catch (const std::exception&) {
    }
}

/// The inode of the entry itself, not of what it links to; 0 where there is none.
std::uint64_t inodeOf(const fn::String& path)
{
    const fn::File file(path);
    return file.exists(fn::File::Links::Keep) ? file.info(fn::File::Links::Keep).inode : 0;
}

/// One `CommandIPC::send()`. The callbacks that it waits for hold it.
class IPCSender final : public fn::RefCountedObject {
public:
    /// Called once with the reason of a failure, or with "".
    using Done = folly::Function<void(const fn::String& error)>;

    IPCSender(fn::Value command, fn::uv::Loop& loop, Done done)
        : _loop(loop),
          _command(std::move(command)),
          _stream(fn::makeAuto<fn::uv::PipeStream>(loop, false)),
          _messageHelper(0), // No frame fits: servers do not answer.
          _done(std::move(done))
    {
    }

    void start(const fn::String& pipePath)
    {
        _deadline = fn::uv::Timer::schedule(_loop, CommandIPC::sendLimit,
            [self = fn::AutoPtr(this)] { self->finish(fn::uv::Status("send a command", -ETIMEDOUT).what()); });
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
            finish(exception.what()); // The command cannot be encoded, or is too large: nothing was written.
        }
    }

    void finish(const fn::String& error)
    {
        if (_stream->isClosed()) return; // The deadline came first, and has ended the write.
        _stream->close();
        _deadline.invalidate();
        std::exchange(_done, {})(error);
    }

    fn::uv::Loop& _loop;
    const fn::Value _command;
    fn::AutoPtr<fn::uv::PipeStream> _stream;
    ipc::MessageHelper _messageHelper;
    Done _done;
    fn::Handle _deadline;
};

} // namespace

CommandIPC::CommandIPC() = default;

CommandIPC::~CommandIPC()
{
    if (_listener) close();
    // A client that writes from now on must get an error.
    for (auto* const connection : std::exchange(_connections, {})) connection->close();
}

fn::String CommandIPC::pipePath()
{
    return R"(\\.\pipe\)" + core::AppInfo::commonId() + "-command-ipc." + fn::Environment::userName();
}

void CommandIPC::bind()
{
    if (_listener) {
        acceptAll();
        close();
    }
    _listener = fn::makeAuto<fn::uv::PipeStream>(loopHere(), false);
    const auto path = pipePath();
    moveAside(path);
    _listener->bind(path);
    _inode = inodeOf(path);
    _listener->listen(backlog, [this](const fn::uv::Status& status) {
        status.throwOnError();
        onConnection();
    });
}

void CommandIPC::moveAside(const fn::String& path)
{
    attempt([&] { // If the file can not be moved, the bind that follows fails and says so.
        const fn::File file(path);
        if (!file.exists(fn::File::Links::Keep)) return;
        _backupPath = path + backupMark + fn::UUIDGenerator::defaultGenerator().createOne().toString();
        file.moveTo(_backupPath);
    });
}

void CommandIPC::onConnection()
{
    if (_admitsAll || !isFull()) return accept();
    _othersWait = true;
    _listener->listenStop(); // The system keeps further clients in its queue.
}

void CommandIPC::onRoom()
{
    while (_othersWait && !isFull()) {
        _othersWait = false;
        accept();
        _listener->listenResume(); // May call `onConnection()` for the next client at once.
    }
}

void CommandIPC::accept()
{
    const auto connection = fn::makeAuto<detail::CommandConnection>(*this, loopHere());
    _connections.push_back(connection.get());
    connection->start(*_listener);
}

void CommandIPC::acceptAll()
{
    if (_listener->isClosed()) return;
    _listener->listenEnd(); // A client that comes later must get an error.
    _admitsAll = true;
    if (std::exchange(_othersWait, false)) accept();
    _listener->listenPending();
    _admitsAll = false;
}

void CommandIPC::stop()
{
    const fn::AutoPtr self(this);
    acceptAll();
    close();
    // The connections are held, since the listeners of a command may close any of them.
    const std::vector<fn::AutoPtr<detail::CommandConnection>> clients(_connections.begin(), _connections.end());
    for (const auto& client : clients) client->readPending();
}

/// Removes the endpoint where it is, and moves the file that was moved aside for it to that place. If a later server has moved
/// the endpoint aside, that place is the later server's backup, which it will put back when it stops.
void CommandIPC::close()
{
    const auto moved = movedTo(); // Before the listener is closed: then another file may get the inode.
    _listener->close({});
    _othersWait = false;
    if (!moved.empty()) attempt([&] { fn::File(moved).remove(false); });
    if (_backupPath.empty()) return;
    attempt([&] { // The backup may have been removed. A file at the endpoint's path now belongs to another server.
        const auto place = moved.empty() ? pipePath() : moved;
        if (!moved.empty() || !fn::File(place).exists(fn::File::Links::Keep)) fn::File(_backupPath).moveTo(place);
    });
}

/// The path to which another server has moved the endpoint of this one; empty if none has.
fn::String CommandIPC::movedTo() const
{
    fn::String result;
    attempt([&] {
        const auto path = _listener->nativePath();
        if (_listener->isClosed() || path.empty() || inodeOf(path) == _inode) return;
        for (const auto& entry : fn::DirectoryIterator(fn::Path::parsePath(path).directory)) {
            if (entry.path.startsWith(path + backupMark) && inodeOf(entry.path) == _inode) result = entry.path;
        }
    });
    return result;
}

/*static*/ void CommandIPC::send(fn::Value command, folly::Function<void()> done)
{
    auto tell = [done = std::move(done)](const fn::String& error) mutable {
        if (!error.empty()) FN_LOG(Error, "CommandIPC failed: {}", error.view());
        if (done) done();
    };
    fn::makeAuto<IPCSender>(std::move(command), loopHere(), std::move(tell))->start(pipePath());
}

/*static*/ fn::Promise<void> CommandIPC::send(fn::Value command)
{
    const auto result = fn::Promise<void>::create();
    const auto settle = [result](const fn::String& error) {
        if (error.empty())
            result.fulfill();
        else
            result.reject(std::make_exception_ptr(fn::IOException(error, fn::Exception::StackTrace::None)));
    };
    fn::makeAuto<IPCSender>(std::move(command), loopHere(), settle)->start(pipePath());
    return result;
}

} // namespace core
