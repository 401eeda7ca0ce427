#pragma once
#include "foundation/time/clock_private.h"
#include "foundation/unhandled_exception.h"
#include "foundation/uv/detail/timer_queue.h"
#include "foundation/uv/loop.h"
#include "foundation/uv/system.h"
#include <atomic>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <uv.h>
#include <vector>

namespace fn {

namespace internal {
/// Sets what `RunLoop::currentLoop()` gives on this thread, and gives back what it was.
RunLoop* exchangeCurrentLoop(RunLoop* loop) noexcept;

/// How many loops are being destroyed on this thread.
int& endingLoops() noexcept;
} // namespace internal

namespace uv {

/// Calls what the user gave; an exception goes to `fn::unhandledException()`.
template <typename Callable, typename... Args> void callGuarded(Callable&& callable, Args&&... args) noexcept
{
    try {
        callable(std::forward<Args>(args)...);
    } catch (...) {
        unhandledException();
    }
}

/// Takes the first element out of a queue. What its end runs finds it gone.
template <typename T> T takeFirst(std::deque<T>& queue)
{
    T first = std::move(queue.front());
    queue.pop_front();
    return first;
}

/// Something that a loop's end has to end: a timer, a stream, a child process.
class LoopMember {
public:
    LoopMember(const LoopMember&) = delete;
    LoopMember& operator=(const LoopMember&) = delete;

    /// Drop all callbacks, close what libuv holds. It may destroy itself.
    virtual void loopIsEnding() = 0;

    virtual void flush() { } ///< Send what waits (see `Loop::Private::flushLater()`). Runs no user code.

protected:
    explicit LoopMember(Loop::Private& loop);
    virtual ~LoopMember();

    Loop::Private* loop() const noexcept { return _loop; } ///< Null once the loop has ended.

private:
    friend struct Loop::Private;
    friend class LoopMembers;
    LoopMember() noexcept = default; // The head of a list.
    void unlink() noexcept;

    Loop::Private* _loop = nullptr;
    LoopMember* _previous = this;
    LoopMember* _next = this;
};

/// A member whose memory several need: its user, libuv until it has closed, tasks on their way. Loop thread.
class SharedMember : public LoopMember {
public:
    /// Gives up one hold. The last one has the loop free it, once no frame of libuv can be left that knows it: a task that
    /// runs the loop again may have closed it inside of its own read callback.
    struct Release {
        void operator()(SharedMember* member) const noexcept { member->release(); }
    };
    template <typename T> using Hold = std::unique_ptr<T, Release>;

    void release() noexcept;

protected:
    SharedMember(Loop::Private& loop, int holders) : LoopMember(loop), _holders(holders) { }
    template <typename T> static Hold<T> hold(T* member) noexcept
    {
        ++member->_holders;
        return Hold<T>(member);
    }

private:
    int _holders;
};

/// A list of members. They leave it by themselves, whichever list they are in.
class LoopMembers {
public:
    void add(LoopMember& member) noexcept;
    LoopMember* first() const noexcept { return _head._next == &_head ? nullptr : _head._next; }

private:
    struct Head final : LoopMember {
        void loopIsEnding() override { }
    };
    Head _head;
};

/// One turn of a loop: the tasks present are counted, due timers fire, libuv runs one iteration, the counted tasks run,
/// streams are flushed. libuv waits for I/O only if no task and no stop are pending when it comes to it.
struct Loop::Private final : ClockFollower {
    /// Read buffer lent to one read. At 128 KiB a socket buffer of the usual size takes two reads.
    static constexpr std::size_t ReadBufferSize = 128 * 1024;

    Private(Loop& owner, const Clock& clock);
    ~Private();

    void run();
    void stop();
    void post(Task task);
    void postDeletion(Task deletion);
    Handle schedule(Duration delay, Task task);
    bool isCurrentThread() const noexcept
    {
        return _thread.load(std::memory_order_relaxed) == std::this_thread::get_id();
    }

    /// Whether the calling thread may touch what belongs to the loop's thread: while nobody runs the loop, its owner may.
    bool mayTouch() const noexcept;

    Loop& owner() const noexcept { return _owner; }
    uv_loop_t* handle() noexcept { return &_uv; } ///< Real life only.
    System* system() const noexcept { return _system; } ///< Null in real life.
    Private& requireReal(const char* what); ///< Itself; `fn::RuntimeException` in the simulated world.
    const Clock& clock() const noexcept { return _clock; }
    TimerQueue& timers() noexcept { return _timers; }
    LoopMembers& members() noexcept { return _members; }

    /// Has `member.flush()` called at the end of this turn's tasks, at the latest before the loop waits.
    void flushLater(LoopMember& member) { _unflushed.push_back(&member); }

    /// Freed at the end of a turn, unless that is of a run inside of a callback of libuv or of a timer.
    void retire(LoopMember& member) { _retired.push_back(&member); }

    int children = 0; ///< Started on this loop and not reaped yet.
    bool endsWithChildren = false; ///< The last one stops the loop.

    std::unique_ptr<char[]> takeReadBuffer();
    void returnReadBuffer(std::unique_ptr<char[]> buffer) { _readBuffers.push_back(std::move(buffer)); }

private:
    void clockAdvanced() override { wake(); }
    void wake();
    void initialize();
    void turn();
    void runSimulated();
    void simulatedTurn();
    void takeRemoteTasks();
    std::uint64_t postedTasks() const noexcept { return _takenTasks + _tasks.size(); } // Ever.
    void fireDueTimers();
    void runTasks();
    void flushStreams();
    void freeRetired();
    void wokenUp();
    void beforeWait();
    void armAlarm();
    bool takeStop() noexcept;
    void destroyTasks();
    void endMembers();
    void closeHandles();

    Loop& _owner;
    const Clock& _clock;
    ManualClock::Private* const _manualClock; // Null: the clock goes on by itself.
    const bool _followsSystemClock; // The one that libuv reads, too.

    uv_loop_t _uv;
    uv_async_t _wake; // For other threads; keeps libuv's loop alive.
    uv_prepare_t _prepare; // The last thing before libuv waits.
    uv_idle_t _dontWait; // Active while something is left to do.
    uv_timer_t _alarm; // Ends the wait for the earliest timer; what is due is looked up in `_timers`.
    std::optional<Duration> _alarmTime; // What `_alarm` is set for.

    std::atomic<std::thread::id> _thread; // That runs the loop.
    int _callbacks = 0; // Of libuv and of timers: runs that are inside of one.
    std::atomic<bool> _ended { false }; // Set under `_lock`.

    std::deque<Task> _tasks;
    std::uint64_t _takenTasks = 0; // So many have left `_tasks` in order to run.
    std::uint64_t _turnEnd = 0; // Of all that were posted, so many run in this turn or have run.
    TimerQueue _timers;
    LoopMembers _members;
    LoopMembers _endedMembers; // Told of the loop's end, but libuv or a user still knows them.
    std::vector<LoopMember*> _unflushed;
    std::vector<LoopMember*> _flushing; // Empty but for its memory, between calls.
    std::vector<LoopMember*> _retired;
    std::vector<std::unique_ptr<char[]>> _readBuffers; // One, unless reads are nested.

    // A thread's last act may be a post or a stop that ends the loop, so `_wake` is sent under the lock, and the
    // destructor takes the lock once before it goes on.
    std::mutex _lock;
    std::vector<Task> _remoteTasks; // Guarded by `_lock`.
    std::vector<Task> _arrivedTasks; // Empty but for its memory, between calls.
    std::atomic<bool> _hasRemoteTasks { false }; // Written under `_lock`.
    std::atomic<bool> _stopRequested { false }; // Set under `_lock` by other threads.

    System* const _system; // In whose process the loop was made. libuv's members are not in use then.
};

} // namespace uv
} // namespace fn
