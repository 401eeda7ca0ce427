#pragma once
#include "foundation/time/clock.h"
#include "foundation/uv/system.h"
#include <deque>
#include <folly/Function.h>
#include <map>

namespace core::simulation {

class Fiber;
class SimulatedSocket;
class World;

/// One process of a simulated world. Lives as long as the world.
class FN_EXPORT Process final : public fn::uv::System {
public:
    /// The process's program; gives its exit status.
    using Main = folly::Function<int()>;

    ~Process() override;

    /// The process whose code runs now; null outside of the processes' turns.
    static Process* current() noexcept;

    World& world() const noexcept { return _world; } ///< The world that it lives in.
    int id() const noexcept { return _id; } ///< Names the process within its world.
    /// As it was started; a module's process has the name of its library.
    const fn::String& name() const noexcept { return _name; }
    bool isDead() const noexcept override { return _isDead; } ///< Killed or ended.
    bool isFrozen() const noexcept; ///< Whether it gets no turns: after `World::freeze()` or SIGSTOP.
    bool isHanging() const noexcept { return _isHanging; } ///< It was launched and never does anything.
    std::int64_t status() const noexcept { return _status; } ///< The exit status of a dead process.
    int signal() const noexcept { return _signal; } ///< The signal that killed the process, or 0.

    /// The process gets this signal when its parent dies.
    void setParentDeathSignal(int signal) noexcept { _parentDeathSignal = signal; }

    // fn::uv::System, for the library.
    const fn::Clock& clock() const noexcept override;
    void wait(bool mayBlock, std::optional<fn::Duration> until) override;
    void deliver() override;
    void finishCloses() override;
    void tookSteps(std::size_t count) override;
    std::unique_ptr<Socket> makeSocket(SocketUser& user) override;
    int spawn(const fn::String& file, const std::vector<fn::String>& arguments, ChildUser& user) override;
    void forget(ChildUser& user) noexcept override;
    int kill(int processId, int signal) override;
    void watchSignal(int signal, SignalUser& user) override;
    void unwatchSignal(SignalUser& user) noexcept override;
    std::map<fn::String, std::optional<fn::String>>& environment() override { return _environment; }
    void fillRandomly(std::span<std::uint8_t> bytes) override;
    bool hasMemoryFor(std::size_t bytes) override;
    void* local(const LocalMaker& maker) override;

private:
    friend class SimulatedSocket;
    friend class World;

    struct Local {
        const LocalMaker* maker;
        void* object;
    };
    struct Child {
        Process* process;
        ChildUser* user;
    };

    Process(World& world, int id, fn::String name, Process* parent);

    void run(Main main);
    bool isStopped() const noexcept { return _frozenUntil == fn::Duration(INT64_MAX); }
    void destroyLocals();
    bool canRun(fn::Duration now) const noexcept;
    void touch(SimulatedSocket& socket); ///< Lists the socket among the ready ones if it is ready.
    bool deliverOne();
    void deliverEnds();
    void die(std::int64_t status, int signal);
    void childDied(Process& child);
    void receiveSignal(int signal);

    /// The world's time. In a dead process a second passes with each wait, so that waits of its code end soon.
    struct ProcessClock final : fn::Clock {
        explicit ProcessClock(Process& process) : process(process) { }
        fn::Duration monotonic() const override;
        fn::Duration sinceEpoch() const override;
        Process& process;
    };

    World& _world;
    const ProcessClock _clock { *this };
    const int _id;
    const fn::String _name;
    Process* const _parent;
    std::unique_ptr<Fiber> _fiber;

    bool _isDead = false;
    bool _isExposed = false;
    bool _hasStarted = false;
    bool _isHanging = false;
    bool _diesInWrite = false;
    int _parentDeathSignal = 0;
    std::int64_t _status = 0;
    int _signal = 0;
    std::optional<fn::Duration> _frozenUntil;

    bool _mayBlock = false; // The arguments of the latest `wait()`.
    std::optional<fn::Duration> _until;
    int _deadTurns = 0; // Waits since the process died.
    std::uint64_t _lastTurn = 0;

    std::vector<SimulatedSocket*> _sockets; // All open ones.
    std::vector<SimulatedSocket*> _ready;
    std::vector<SimulatedSocket*> _closing;
    std::deque<folly::Function<void()>> _events; // Exits of children, signals.
    std::vector<Child> _children;
    std::vector<std::pair<int, SignalUser*>> _watched;
    std::vector<Local> _locals;
    std::map<fn::String, std::optional<fn::String>> _environment;
};

} // namespace core::simulation
