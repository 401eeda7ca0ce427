#pragma once
#include "core/simulation/decisions.h"
#include "core/simulation/options.h"
#include "core/simulation/process.h"

namespace core::simulation {

/// A whole application, all of its processes, in one thread of this process and from one sequence of decisions: the same ones
/// give the same run to the byte. What runs in it is the real thing, dispatcher, module manager, modules in their libraries; only
/// clock, pipes, starting of processes, signals and random numbers are the world's. Files and SQLite stay real.
///
/// Time is virtual: it goes on by a little with each turn of a process, and where all wait it jumps to what comes next. An hour of
/// waiting takes no time.
///
///     Decisions decisions(seed);
///     World world(decisions);
///     world.start("skyfold", [] { return skyfoldMain(); });
///     world.run([&] { return isDone; }, fn::Duration::seconds(60));
///
/// What there is once in each process (the default loop, the message bus, ...) there is once in each of these. Static variables
/// of a module library itself are not: all simulated processes share them.
class FN_EXPORT World final {
public:
    /// A program that processes can start: what its `main` would do with these arguments.
    using Program = folly::Function<int(const std::vector<fn::String>& arguments)>;

    /// `decisions` is borrowed. The module loader is known from the start.
    explicit World(Decisions& decisions, Options options = {});
    World(const World&) = delete;
    ~World(); ///< Kills who is left, and lets them run out.

    Process& start(const fn::String& name, Process::Main main); ///< It runs when the world does.

    /// Is told what the world's own faults hit, by the name of the process: one may also never have come to be.
    /// `time`: of a freeze.
    void setHarmObserver(folly::Function<void(const fn::String& name, const char* harm, fn::Duration time)> observer);

    /// What runs where a process starts a file of that name, in whichever folder.
    void addProgram(const fn::String& fileName, Program program);

    /// Lets the world go on until `condition` holds, which is looked at after every turn of a process. False: `bound` has
    /// passed before, or nobody will ever do anything again.
    bool run(folly::Function<bool()> condition, fn::Duration bound);
    void runFor(fn::Duration time);

    fn::Duration now() const noexcept { return _now; } ///< Since the world began.
    std::uint64_t steps() const noexcept { return _steps; } ///< Chunks, timers, tasks and exits so far.

    /// Over all that was read from pipes, by whom and when. Two runs that have the same are the same.
    std::uint64_t traceHash() const noexcept { return _trace; }

    /// In order of birth.
    const std::vector<std::unique_ptr<Process>>& processes() const noexcept { return _processes; }
    /// The latest living one of that name, or null. A module has its library's.
    Process* find(const fn::String& name) const;
    Process* find(int id) const; ///< Dead or alive; null if there was none.

    void signal(Process& process, int signal); ///< SIGSTOP and SIGCONT included.
    void freeze(Process& process, fn::Duration time);

    Decisions& decisions() noexcept { return _decisions; }
    Options& options() noexcept { return _options; } ///< May be changed at any time.

private:
    friend class Process;
    friend class SimulatedSocket;

    bool turn();
    Process* choose();
    void resume(Process& process);
    bool passTime();
    void harm(Process& process);
    void tellHarm(const fn::String& name, const char* harm, fn::Duration time = {});
    Process& add(fn::String name, Process* parent);
    int launch(Process& parent, const fn::String& file, const std::vector<fn::String>& arguments);

    // For its processes and sockets.
    bool addListener(const fn::String& name, SimulatedSocket& listener);
    void removeListener(const fn::String& name, SimulatedSocket& listener) noexcept;
    SimulatedSocket* listener(const fn::String& name) const;
    std::size_t cut(std::size_t bytes);
    std::size_t socketCapacity();
    bool findsQueueFull() { return _decisions.happens(Choice::Fault, _options.fullQueues); }
    bool tosses() { return _decisions.choose(Choice::Schedule, 2) == 0; }
    void trace(std::string_view bytes) noexcept;
    void trace(std::uint64_t number) noexcept;

    Decisions& _decisions;
    Options _options;
    fn::Duration _now;
    std::uint64_t _steps = 0;
    std::uint64_t _turns = 0;
    std::uint64_t _randomBytes = 0; // Drawn so far.
    std::uint64_t _trace = 0;
    std::vector<std::unique_ptr<Process>> _processes;
    std::vector<Process*> _candidates; // Empty but for its memory, between turns.
    std::map<fn::String, SimulatedSocket*> _listeners;
    std::map<fn::String, Program> _programs;
    folly::Function<void(const fn::String&, const char*, fn::Duration)> _onHarm;
};

} // namespace core::simulation
