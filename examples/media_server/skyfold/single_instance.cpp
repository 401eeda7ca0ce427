#include "skyfold/single_instance.h"
#include "base/exceptions.h"
#include "foundation/logging/category_manager.h"
#include "foundation/logging/sink.h"
#include "foundation/time/clock.h"

namespace media {
namespace {

constexpr const char* lockName = "skyfold"; // Of both applications: they share the command pipe.
constexpr const char* handOverLockName = "skyfold-handover"; // Of who is handing over, or closing.
constexpr auto handOverTime = fn::Duration::seconds(10);
constexpr auto attemptInterval = fn::Duration::milliseconds(50);

// What a client has sent before it gave up the lock is here after that many: accepted, read, told.
constexpr int turnsToRead = 5;

void afterTurns(fn::uv::Loop& loop, int turns, folly::Function<void()> task)
{
    loop.post([&loop, turns, task = std::move(task)]() mutable {
        if (turns == 0)
            task();
        else
            afterTurns(loop, turns - 1, std::move(task));
    });
}

/// Hears whether a command could not be delivered: that is logged, and told nowhere else.
class FailureListener final : public fn::logging::Sink {
public:
    bool hasFailed = false;

    int threshold(const fn::logging::Category& category) const override
    {
        return category.name() == "core.commandIPC" ? fn::logging::Error : 0;
    }
    void logMessage(const fn::logging::Category&, const fn::logging::Message&) override { hasFailed = true; }

private:
    ~FailureListener() override = default;
};

bool deliver(fn::uv::Loop& loop, const fn::Value& command)
{
    const auto failures = fn::makeAuto<FailureListener>();
    fn::logging::CategoryManager::instance().addSink(failures);
    loop.post([&] { core::CommandIPC::send(command, [&loop] { loop.stop(); }); });
    loop.run();
    fn::logging::CategoryManager::instance().removeSink(failures);
    return !failures->hasFailed;
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
        // The first does not close while we have this one.
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

struct SingleInstance::Closing {
    fn::uv::Loop& loop;
    folly::Function<bool()> isNeeded;
    folly::Function<void()> done;
};

void SingleInstance::closeWhenQuiet(fn::uv::Loop& loop, folly::Function<bool()> isNeeded, folly::Function<void()> done)
{
    tryToClose(std::make_shared<Closing>(loop, std::move(isNeeded), std::move(done)));
}

void SingleInstance::tryToClose(const std::shared_ptr<Closing>& closing)
{
    auto handOver = std::make_shared<core::ProcessLock>(handOverLockName);
    if (!handOver->exclusive()) {
        _nextAttempt = closing->loop.schedule(attemptInterval, [this, closing] { tryToClose(closing); });
        return;
    }
    afterTurns(closing->loop, turnsToRead, [this, closing, handOver] {
        if (!closing->isNeeded()) close();
        closing->done();
    });
}

void SingleInstance::close()
{
    _connection.invalidate();
    if (_commands) std::exchange(_commands, {})->stop();
}

} // namespace media
