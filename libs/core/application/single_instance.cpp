#include "core/application/single_instance.h"
#include "base/exceptions.h"
#include "base/file_descriptor.h"
#include "base/posix.h"
#include "core/services/app_info.h"
#include "foundation/coroutine/sleep.h"
#include "foundation/system/path_manager.h"
#include "foundation/time/clock.h"
#include <array>

namespace ipc {
namespace {

constexpr auto handOverTime = fn::Duration::seconds(10);
constexpr auto attemptInterval = fn::Duration::milliseconds(50);

fn::String lockName() { return core::AppInfo::commonId(); }
fn::String handOverLockName()
{
    return core::AppInfo::commonId() + ".handover";
} // Held while handing over, or closing.

/// Who runs under the id: what AppIdentity::toText() gives, in a file beside the lock.
fn::String ownerFile() { return fn::PathManager::privatePath(core::AppInfo::commonId() + ".owner"); }

void writeOwner()
{
    const auto text = core::AppInfo::instance().identity().toText();
    const auto file = fn::FileDescriptor::write(ownerFile(), 0600);
    (void)fn::posix::write(file.get(), text.data(), text.size()); // What is cut off is read as no identity.
}

/// Throws if the program that runs is another application of the same id: it would not understand the command.
void checkOwner()
{
    std::array<char, 256> text;
    core::AppIdentity owner;
    try {
        const auto file = fn::FileDescriptor::readRegular(ownerFile());
        const auto count = fn::posix::read(file.get(), text.data(), text.size());
        owner = core::AppIdentity::fromText(
            std::string_view(text.data(), static_cast<std::size_t>(std::max(count, ssize_t(0)))));
    } catch (const fn::Exception&) { // It has just begun, and has not written one.
        return;
    }
    const auto own = core::AppInfo::instance().identity();
    if (owner.id != own.id || owner.name == own.name) return; // Of the same family, or another version.
    throw fn::RuntimeException("\"" + owner.name + "\" is running under the id \"" + own.id
            + "\", which is also that of \"" + own.name + "\". End it, and give one of them another id.",
        fn::Exception::StackTrace::None);
}

/// Gives false if no program listens, or if other code stops the loop.
bool deliver(fn::uv::Loop& loop, const fn::Value& command)
{
    enum class State { Sending, Delivered, Failed };
    const auto state = std::make_shared<State>(State::Sending);
    const auto settle = [&loop, weak = std::weak_ptr(state)](State outcome) {
        const auto state = weak.lock();
        if (!state) return; // Nobody waits for it any more.
        *state = outcome;
        loop.stop();
    };
    loop.post([&command, settle] {
        core::CommandIPC::send(command).then(
            [settle] { settle(State::Delivered); }, [settle](const std::exception_ptr&) { settle(State::Failed); });
    });
    loop.run();
    return *state == State::Delivered;
}

} // namespace

SingleInstance::SingleInstance() = default;
SingleInstance::~SingleInstance() = default;

std::optional<SingleInstance::Role> SingleInstance::begin(
    fn::uv::Loop& loop, const fn::Value& command, const std::function<bool()>& isCancelled)
{
    const auto end = loop.clock().monotonic() + handOverTime;
    while (!isCancelled()) {
        _lock.emplace(lockName());
        if (_lock->exclusive()) {
            writeOwner();
            return Role::First;
        }
        checkOwner();
        _lock.reset();
        // While this process holds this lock, the first program does not close.
        if (core::ProcessLock handOver(handOverLockName()); handOver.exclusive() && deliver(loop, command))
            return Role::Second;
        if (loop.clock().monotonic() > end) {
            throw fn::RuntimeException("Another " + core::AppInfo::instance().applicationDisplayName()
                    + " is running and takes no commands. End it, or try again later.",
                fn::Exception::StackTrace::None);
        }
        const auto pause = loop.schedule(attemptInterval, [&loop] { loop.stop(); });
        loop.run();
    }
    return std::nullopt;
}

bool SingleInstance::isRunning() { return !core::ProcessLock(lockName()).exclusive(); }

void SingleInstance::accept(OnCommand onCommand)
{
    _commands = fn::makeAuto<core::CommandIPC>();
    _connection = _commands->onCommand().connect(std::move(onCommand));
    _commands->bind();
}

fn::Promise<bool> SingleInstance::closeUnless(folly::Function<bool()> hasMore)
{
    while (_commands) { // Else the program is ending.
        if (const core::ProcessLock handOver(handOverLockName()); handOver.exclusive()) {
            _commands->stop(); // Signals all commands that were sent before it returns.
            if (hasMore()) {
                _commands->bind();
                co_return false;
            }
            close();
            co_return true;
        }
        co_await fn::sleep(attemptInterval);
    }
    co_return true;
}

void SingleInstance::close()
{
    _connection.invalidate();
    _commands.reset();
}

} // namespace ipc
