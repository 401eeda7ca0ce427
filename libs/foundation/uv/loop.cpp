#include "foundation/uv/loop.h"
#include "base/exceptions.h"
#include "foundation/assertion.h"
#include "foundation/unhandled_exception.h"
#include "foundation/uv/detail/loop_private.h"
#include "foundation/uv/detail/scheduled_task.h"
#include "foundation/uv/status.h"
#include "foundation/work_context.h"
#include <csignal>

namespace fn::uv {
namespace {

// How far `uv_now()` may lie behind the clock: it counts whole milliseconds of a coarse clock. Callbacks since then have taken time,
// too; a timer that has become due during those fires in the next turn, and the alarm keeps libuv from waiting before it.
constexpr auto knownTimeMargin = Duration::milliseconds(2);

void ignoreBrokenPipes()
{
    // A write to a peer that has gone reports an error; no signal is needed.
    static const auto previous = std::signal(SIGPIPE, SIG_IGN);
    static_cast<void>(previous);
}

/// Runs a task when the task is freed, so that a deletion that is dropped from the queue takes place, too.
struct RunAndFree {
    void operator()(Task* task) const noexcept
    {
        const std::unique_ptr<Task> owned(task);
        callGuarded(*owned);
    }
};

Duration deadlineAfter(Duration now, Duration delay)
{
    const auto milliseconds = std::max<std::int64_t>(delay.totalMilliseconds(1), 0);
    return now + Duration::milliseconds(milliseconds);
}

} // namespace

LoopMember::LoopMember(Loop::Private& loop) : _loop(&loop) { loop.members().add(*this); }

LoopMember::~LoopMember() { unlink(); }

void LoopMember::unlink() noexcept
{
    _previous->_next = _next;
    _next->_previous = _previous;
    _previous = _next = this;
}

void SharedMember::release() noexcept
{
    if (--_holders > 0) return;
    if (loop())
        loop()->retire(*this);
    else
        delete this;
}

void LoopMembers::add(LoopMember& member) noexcept
{
    member.unlink();
    member._next = &_head;
    member._previous = _head._previous;
    member._previous->_next = &member;
    _head._previous = &member;
}

Loop::Private::Private(Loop& owner, const Clock& clock)
    : _owner(owner),
      _clock(clock),
      _manualClock([&] {
          const auto* manual = dynamic_cast<const ManualClock*>(&clock);
          return manual ? &manual->internals() : nullptr;
      }()),
      _followsSystemClock(&clock == &Clock::system()),
      _system(System::current())
{
    if (!_system) initialize();
    if (_manualClock) _manualClock->add(*this);
}

Loop::Private& Loop::Private::requireReal(const char* what)
{
    if (_system) throw RuntimeException(String(what) + " has no counterpart in the simulated world");
    return *this;
}

void Loop::Private::initialize()
{
    ignoreBrokenPipes();
    Status("create an event loop", uv_loop_init(&_uv)).throwOnError();
    _uv.data = this;
    const auto onWake = [](uv_async_t* wake) { static_cast<Private*>(wake->loop->data)->wokenUp(); };
    if (const auto code = uv_async_init(&_uv, &_wake, onWake); code < 0) {
        uv_loop_close(&_uv);
        Status("create an event loop", code).throwOnError();
    }
    uv_prepare_init(&_uv, &_prepare);
    uv_idle_init(&_uv, &_dontWait);
    uv_timer_init(&_uv, &_alarm);
    // libuv calls the prepare callback that was started last first: this one, the oldest, is called last.
    uv_prepare_start(
        &_prepare, [](uv_prepare_t* prepare) { static_cast<Private*>(prepare->loop->data)->beforeWait(); });
}

Loop::Private::~Private()
{
    ++internal::endingLoops();
    if (_manualClock) _manualClock->remove(*this);
    {
        const std::lock_guard guard(_lock);
        _ended = true;
    }
    do {
        destroyTasks();
        endMembers();
    } while (_hasRemoteTasks);
    if (_system)
        _system->finishCloses();
    else
        closeHandles();
    freeRetired();
    while (auto* member = _endedMembers.first()) {
        member->unlink();
        member->_loop = nullptr;
    }
    destroyTasks();
    --internal::endingLoops();
}

bool Loop::Private::mayTouch() const noexcept
{
    const auto thread = _thread.load(std::memory_order_relaxed);
    return thread == std::thread::id() || thread == std::this_thread::get_id();
}

void Loop::Private::run()
{
    if (!FN_ASSERT(!_ended, sites::loopIsThere)) return;
    const auto thread = std::this_thread::get_id();
    const auto previousThread = _thread.exchange(thread);
    auto* const previousLoop = internal::exchangeCurrentLoop(&_owner);
    const ScopedContext context { WorkContext() }; // What the loop runs is not the work of the code that runs the loop.
    FN_ASSERT(previousThread == std::thread::id() || previousThread == thread, sites::loopHasOneThread);
    if (!_system) [[likely]] {
        while (!takeStop()) turn();
    } else {
        runSimulated();
    }
    flushStreams();
    internal::exchangeCurrentLoop(previousLoop);
    _thread = previousThread;
}

bool Loop::Private::takeStop() noexcept
{
    return _stopRequested.load(std::memory_order_relaxed) && _stopRequested.exchange(false);
}

void Loop::Private::stop()
{
    if (isCurrentThread()) {
        _stopRequested = true;
        return;
    }
    const std::lock_guard guard(_lock);
    _stopRequested = true;
    if (!_ended) wake();
}

// Called under `_lock`, or by a manual clock, which the loop's destructor leaves first.
void Loop::Private::wake()
{
    if (!_system) [[likely]]
        uv_async_send(&_wake);
    else
        FN_ASSERT(_system == System::current(), sites::loopIsOfThisProcess);
}

void Loop::Private::post(Task task)
{
    if (isCurrentThread()) return _tasks.push_back(std::move(task));
    const std::lock_guard guard(_lock);
    _remoteTasks.push_back(std::move(task));
    if (!_hasRemoteTasks.exchange(true) && !_ended) wake();
}

void Loop::Private::postDeletion(Task deletion)
{
    if (_ended) return callGuarded(deletion);
    post([owned = std::unique_ptr<Task, RunAndFree>(new Task(std::move(deletion)))]() mutable { owned.reset(); });
}

Handle Loop::Private::schedule(Duration delay, Task task)
{
    return Handle(*new ScheduledTask(*this, deadlineAfter(_clock.monotonic(), delay), std::move(task)));
}

void Loop::Private::turn()
{
    takeRemoteTasks();
    _turnEnd = postedTasks();
    ++_callbacks;
    fireDueTimers();
    uv_run(&_uv, _tasks.empty() ? UV_RUN_ONCE : UV_RUN_NOWAIT); // Where it does not wait, it reads the clock once less.
    --_callbacks;
    runTasks();
    flushStreams();
    freeRetired();
}

// Apart from `run()`, so that real turns contain no code for simulated ones.
[[gnu::noinline]] void Loop::Private::runSimulated()
{
    while (!takeStop()) {
        simulatedTurn();
        if (_system->isDead())
            return; // Each run has made one turn: code that runs the loop until a condition holds comes to its end.
    }
}

void Loop::Private::simulatedTurn()
{
    takeRemoteTasks();
    _turnEnd = postedTasks();
    ++_callbacks;
    if (_timers.earliest()) _timers.fireDue(_clock.monotonic());
    flushStreams();
    // While other processes run, no thread runs this loop: a task that one of them posts to it by mistake is noticed.
    const auto thread = _thread.exchange(std::thread::id());
    auto* const current = internal::exchangeCurrentLoop(nullptr);
    const bool mayBlock = _tasks.empty() && !_hasRemoteTasks && !_stopRequested;
    _system->wait(mayBlock, _timers.earliest());
    internal::exchangeCurrentLoop(current);
    _thread = thread;
    _system->deliver();
    --_callbacks;
    wokenUp();
    _system->tookSteps(_turnEnd - std::min(_turnEnd, _takenTasks));
    runTasks();
    flushStreams();
    freeRetired();
}

void Loop::Private::takeRemoteTasks()
{
    if (!_hasRemoteTasks.load(std::memory_order_relaxed)) return;
    {
        const std::lock_guard guard(_lock);
        _arrivedTasks.swap(_remoteTasks);
        _hasRemoteTasks.store(false, std::memory_order_relaxed);
    }
    for (auto& task : _arrivedTasks) _tasks.push_back(std::move(task));
    _arrivedTasks.clear();
}

void Loop::Private::fireDueTimers()
{
    const auto earliest = _timers.earliest();
    if (!earliest) return;
    // libuv has read the same clock when its wait ended. Where that was long before the earliest deadline, it is not read again.
    if (_followsSystemClock) {
        const auto known = Duration::milliseconds(static_cast<std::int64_t>(uv_now(&_uv)));
        if (known + knownTimeMargin < *earliest) return;
    }
    _timers.fireDue(_clock.monotonic());
}

void Loop::Private::runTasks()
{
    const auto end = _turnEnd; // A task that runs the loop again changes `_turnEnd`.
    while (_takenTasks < end) {
        ++_takenTasks;
        auto task = takeFirst(_tasks);
        callGuarded(task);
    }
}

void Loop::Private::flushStreams()
{
    while (!_unflushed.empty()) {
        _flushing.swap(_unflushed);
        for (auto* member : _flushing) member->flush();
        _flushing.clear();
    }
}

void Loop::Private::freeRetired()
{
    if (_callbacks > 0) return; // This turn runs inside a callback of libuv, which may still use the members.
    for (auto* member : std::exchange(_retired, {})) delete member;
}

void Loop::Private::wokenUp()
{
    // Tasks of other threads that ended the wait run in this turn, unless a callback has posted a task before them.
    const bool nothingPostedSince = _turnEnd == postedTasks();
    takeRemoteTasks();
    if (nothingPostedSince) _turnEnd = postedTasks();
}

void Loop::Private::beforeWait()
{
    flushStreams();
    // A manual clock sets no alarm: a timer that is due by that clock keeps libuv from waiting here.
    const bool isDue = _manualClock && _timers.earliest() && *_timers.earliest() <= _clock.monotonic();
    if (!_tasks.empty() || _stopRequested || isDue)
        uv_idle_start(&_dontWait, [](uv_idle_t*) {});
    else
        uv_idle_stop(&_dontWait);
    if (!_manualClock) armAlarm();
}

void Loop::Private::armAlarm()
{
    const auto earliest = _timers.earliest();
    if (earliest == _alarmTime) return;
    _alarmTime = earliest;
    if (!earliest) {
        uv_timer_stop(&_alarm);
        return;
    }
    const auto wait = std::max<std::int64_t>((*earliest - _clock.monotonic()).totalMilliseconds(1), 0);
    uv_update_time(&_uv);
    const auto onAlarm = [](uv_timer_t* alarm) { static_cast<Private*>(alarm->loop->data)->_alarmTime.reset(); };
    uv_timer_start(&_alarm, onAlarm, static_cast<std::uint64_t>(wait), 0);
}

std::unique_ptr<char[]> Loop::Private::takeReadBuffer()
{
    if (_readBuffers.empty()) return std::make_unique_for_overwrite<char[]>(ReadBufferSize);
    auto buffer = std::move(_readBuffers.back());
    _readBuffers.pop_back();
    return buffer;
}

void Loop::Private::destroyTasks()
{
    for (takeRemoteTasks(); !_tasks.empty(); takeRemoteTasks()) {
        while (!_tasks.empty()) takeFirst(_tasks);
    }
}

void Loop::Private::endMembers()
{
    while (auto* member = _members.first()) {
        _endedMembers.add(*member);
        member->loopIsEnding();
    }
}

void Loop::Private::closeHandles()
{
    const auto close = [](uv_handle_t* handle, void*) {
        if (!uv_is_closing(handle)) uv_close(handle, nullptr);
    };
    uv_walk(&_uv, close, nullptr);
    while (uv_run(&_uv, UV_RUN_DEFAULT) != 0) { }
    FN_ASSERT(uv_loop_close(&_uv) == 0, sites::loopIsClosed);
}

Loop::Loop() : Loop(Clock::system()) { }

Loop::Loop(const Clock& clock) : _private(std::make_unique<Private>(*this, clock)) { }

Loop::~Loop() = default;

void Loop::run(int) { _private->run(); }
void Loop::stop() { _private->stop(); }
void Loop::post(Task task) { _private->post(std::move(task)); }
void Loop::postDeletion(Task deletion) { _private->postDeletion(std::move(deletion)); }
Handle Loop::schedule(Duration delay, Task task) { return _private->schedule(delay, std::move(task)); }
const Clock& Loop::clock() const { return _private->clock(); }
bool Loop::isCurrentThread() const noexcept { return _private->isCurrentThread(); }
bool Loop::runsElsewhere() const noexcept { return !_private->mayTouch(); }
uv_loop_t* Loop::uvHandle() noexcept { return _private->handle(); }

} // namespace fn::uv
