#include "core/application/single_instance.h"
#include "base/exceptions.h"
#include "base/file_descriptor.h"
#include "base/posix.h"
#include "core/services/app_info.h"
#include "foundation/coroutine/sleep.h"
#include "foundation/io/file.h"
#include "foundation/system/path_manager.h"
#include "foundation/time/clock.h"
#include <array>
#include <unistd.h>

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

/// Replaces the file as a whole.
void writeOwner()
{
    const auto path = ownerFile();
    const auto partial = path + "." + fn::String::number(::getpid());
    ::unlink(partial.c_str());
    const auto text = core::AppInfo::instance().identity().toText();
    auto file = fn::FileDescriptor::write(partial, 0600);
    (void)fn::posix::write(file.get(), text.data(), text.size()); // What is cut off is read as no identity.
    file.close();
    fn::File(partial).moveTo(path);
}

/// Who runs, or ran last; none if that is not known.
std::optional<core::AppIdentity> readOwner()
{
    std::array<char, 256> text;
    try {
        const auto file = fn::FileDescriptor::readRegular(ownerFile());
        const auto count = fn::posix::read(file.get(), text.data(), text.size());
        if (count > 0)
            return core::AppIdentity::fromText(std::string_view(text.data(), static_cast<std::size_t>(count)));
    } catch (const fn::Exception&) { // There is none, or it is not one that this class has written.
    }
    return std::nullopt;
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
    loop.post([command, settle] {
        core::CommandIPC::send(command).then(
            [settle] { settle(State::Delivered); }, [settle](const std::exception_ptr&) { settle(State::Failed); });
    });
    loop.run();
    return *state == State::Delivered;
}

bool handOver(fn::uv::Loop& loop, const fn::Value& command)
{
    const core::ProcessLock handOver(
        handOverLockName()); // While this process holds it, the first program does not close.
    return handOver.exclusive() && deliver(loop, command);
}

} // namespace

SingleInstance::SingleInstance() = default;
SingleInstance::~SingleInstance() = default;

/// Whether the program that runs is another application of the same id, which would not understand the command. It has written
/// its file soon after it has begun: throws if it is still another one at the next look.
bool SingleInstance::isOthers()
{
    const auto own = core::AppInfo::instance().identity();
    const auto owner = readOwner();
    // Within the family, and of another version, one takes the other's commands.
    const bool isOther = owner && owner->id == own.id && owner->name != own.name;
    if (!isOther || !std::exchange(_wasOthers, isOther)) return isOther;
    throw fn::RuntimeException("\"" + owner->name + "\" is running under the id \"" + own.id
            + "\", which is also that of \"" + own.name + "\". End it, and give one of them another id.",
        fn::Exception::StackTrace::None);
}

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
        _lock.reset();
        if (!isOthers() && handOver(loop, command)) return Role::Second;
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
            if (_commands && hasMore()) { // Else a listener has closed it.
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
