#pragma once
#include "foundation/time/detail/clock_private.h"
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
/// Sets the loop that `RunLoop::currentLoop()` gives on this thread, and returns the loop that it gave before.
RunLoop* exchangeCurrentLoop(RunLoop* loop) noexcept;

/// The number of loops that are being destroyed on this thread.
int& endingLoops() noexcept;
} // namespace internal

namespace uv {

/// Calls a function of the user; an exception that it throws goes to `fn::unhandledException()`.
template <typename Callable, typename... Args> void callGuarded(Callable&& callable, Args&&... args) noexcept
{
    try {
        callable(std::forward<Args>(args)...);
    } catch (...) {
        unhandledException();
    }
}

/// Takes the first element out of a queue. The element is no longer in the queue when its destructor runs.
template <typename Queue> auto takeFirst(Queue& queue)
{
    auto first = std::move(queue.front());
    queue.pop_front();
    return first;
}

/// Something that has to end with its loop: a timer, a stream, a child process.
class LoopMember {
public:
    LoopMember(const LoopMember&) = delete;
    LoopMember& operator=(const LoopMember&) = delete;

    /// Drops all callbacks and closes what libuv holds. The member may destroy itself.
    virtual void loopIsEnding() = 0;

    virtual void flush() { } ///< Sends the bytes that wait (see `Loop::Private::flushLater()`). Runs no user code.

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

/// A member with several holders: its user, libuv until it has closed the member's handle, and posted tasks. Loop thread.
class SharedMember : public LoopMember {
public:
    /// Gives up one hold. After the last one the loop frees the member, as soon as no function of libuv that knows the member
    /// can be running: a read callback may run the loop again, and a task in there may close the stream.
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

/// A list of members. A member leaves its list when it is destroyed or added to another list.
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
/// streams are flushed. libuv waits for I/O only if no task, no stop and no due timer is pending at that moment.
struct Loop::Private final : ClockFollower {
    /// Bytes of a buffer that is lent to one read. With 128 KiB a socket buffer of the usual size is emptied by two reads.
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

    /// Whether the calling thread may touch what belongs to the loop's thread: that thread may, and any while nobody runs the loop.
    bool mayTouch() const noexcept;

    Loop& owner() const noexcept { return _owner; }
    uv_loop_t* handle() noexcept { return &_uv; } ///< Real life only.
    System* system() const noexcept { return _system; } ///< Null in real life.
    Private& requireReal(const char* what); ///< Returns this; `fn::RuntimeException` in the simulated world.
    const Clock& clock() const noexcept { return _clock; }
    TimerQueue& timers() noexcept { return _timers; }
    LoopMembers& members() noexcept { return _members; }

    /// Calls `member.flush()` behind the tasks of this turn, at the latest before the loop waits.
    void flushLater(LoopMember& member) { _unflushed.push_back(&member); }

    /// Frees `member` at the end of the next turn that does not run inside a callback of libuv or of a timer.
    void retire(LoopMember& member) { _retired.push_back(&member); }

    int children = 0; ///< Child processes that were started on this loop and are not reaped yet.
    bool endsWithChildren = false; ///< The end of the last child stops the loop.

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
    std::uint64_t postedTasks() const noexcept { return _takenTasks + _tasks.size(); } // All ever posted.
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
    ManualClock::Private* const _manualClock; // Null if the clock goes on by itself.
    const bool _followsSystemClock; // `_clock` is the clock that libuv reads, too.

    uv_loop_t _uv;
    uv_async_t _wake; // For other threads; keeps libuv's loop alive.
    uv_prepare_t _prepare; // Calls `beforeWait()` last before libuv waits.
    uv_idle_t _dontWait; // Keeps libuv from waiting, while the loop has something to do.
    uv_timer_t _alarm; // Ends libuv's wait when the earliest timer is due; `_timers` decides which timers fire.
    std::optional<Duration> _alarmTime; // The deadline that `_alarm` is set for.

    std::atomic<std::thread::id> _thread; // The thread that runs the loop; none while nobody runs it.
    int _callbacks = 0; // Turns, one inside the other, that are in the middle of their timers or of libuv.
    std::atomic<bool> _ended { false }; // Set under `_lock`.

    std::deque<Task> _tasks;
    std::uint64_t _takenTasks = 0; // Counts the tasks that have left `_tasks` in order to run.
    std::uint64_t _turnEnd = 0; // This turn runs tasks until `_takenTasks` has this value.
    TimerQueue _timers;
    LoopMembers _members;
    LoopMembers _endedMembers; // Members that were told of the loop's end, but that libuv or a user still knows.
    std::vector<LoopMember*> _unflushed;
    std::vector<LoopMember*> _flushing; // Empty between calls; kept for its memory.
    std::vector<LoopMember*> _retired;
    std::vector<std::unique_ptr<char[]>> _readBuffers; // Buffers that no read uses: one, unless reads were nested.

    // A task or a stop that another thread sends may have the loop destroyed before `post()` or `stop()` returns there. So `_wake`
    // is sent under the lock, and the destructor takes the lock once before it goes on.
    std::mutex _lock;
    std::vector<Task> _remoteTasks; // Guarded by `_lock`.
    std::vector<Task> _arrivedTasks; // Empty between calls; kept for its memory.
    std::atomic<bool> _hasRemoteTasks { false }; // Written under `_lock`.
    std::atomic<bool> _stopRequested { false }; // Set under `_lock` by other threads.

    System* const _system; // The simulated process of the loop: libuv's members are not in use. Null in real life.
};

} // namespace uv
} // namespace fn
