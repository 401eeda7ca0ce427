#include "skyfold/single_instance.h"
#include "base/exceptions.h"
#include "foundation/coroutine/sleep.h"
#include "foundation/time/clock.h"

namespace media {
namespace {

constexpr const char* lockName = "skyfold"; // For both applications, which share the command pipe.
constexpr const char* handOverLockName = "skyfold-handover"; // Held while handing over, or closing.
constexpr auto handOverTime = fn::Duration::seconds(10);
constexpr auto attemptInterval = fn::Duration::milliseconds(50);

bool deliver(fn::uv::Loop& loop, const fn::Value& command)
{
    bool isDelivered = false;
    loop.post([&] {
        core::CommandIPC::send(command)
            .then([&] { isDelivered = true; }, [](std::exception_ptr) {}) // No program listens.
            .then([&] { loop.stop(); });
    });
    loop.run();
    return isDelivered;
}

} // namespace

SingleInstance::SingleInstance() = default;
SingleInstance::~SingleInstance() = default;

bool SingleInstance::beginOrHandOver(fn::uv::Loop& loop, const fn::Value& command)
{
    const auto end = loop.clock().monotonic() + handOverTime;
    for (;;) {
        _lock.emplace(lockName);
        if (_lock->exclusive()) return true;
        _lock.reset();
        // While this process holds this lock, the first program does not close.
        if (core::ProcessLock handOver(handOverLockName); handOver.exclusive() && deliver(loop, command)) return false;
        if (loop.clock().monotonic() > end) {
            throw fn::RuntimeException("Another Skyfold is running and takes no commands. End it, or try again later.",
                fn::Exception::StackTrace::None);
        }
        const auto pause = loop.schedule(attemptInterval, [&loop] { loop.stop(); });
        loop.run();
    }
}

bool SingleInstance::isRunning() { return !core::ProcessLock(lockName).exclusive(); }

void SingleInstance::accept(OnCommand onCommand)
{
    _commands = fn::makeAuto<core::CommandIPC>();
    _connection = _commands->onCommand().connect(std::move(onCommand));
    _commands->bind();
}

fn::Promise<bool> SingleInstance::closeUnless(folly::Function<bool()> hasMore)
{
    while (_commands) { // Else the program is ending.
        if (const core::ProcessLock handOver(handOverLockName); handOver.exclusive()) {
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

} // namespace media
