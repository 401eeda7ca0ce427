#pragma once
#include "core/simulation/decisions.h"
#include "core/simulation/options.h"
#include "core/simulation/process.h"

namespace core::simulation {

/// A whole application, with all of its processes, in one thread of this process. The same decisions give the same run, to the
/// byte. The dispatcher, the module manager and the modules in their libraries are the real ones; clock, pipes, starts of
/// processes, signals and random numbers are the world's. Files and SQLite are real.
///
/// Time is virtual: a little of it passes with each turn of a process, and when all processes wait it jumps to the first moment
/// at which one can go on. An hour of waiting takes no real time.
///
///     Decisions decisions(seed);
///     World world(decisions);
///     world.start("skyfold", [] { return skyfoldMain(); });
///     world.run([&] { return isDone; }, fn::Duration::seconds(60));
///
/// Each simulated process has its own default loop, message bus and other process-wide services. Static variables of a module
/// library are different: all simulated processes share them.
class FN_EXPORT World final {
public:
    /// A program that processes can start, as its `main()`.
    using Program = folly::Function<int(const std::vector<fn::String>& arguments)>;

    /// Borrows `decisions`. The module loader is a program from the beginning.
    explicit World(Decisions& decisions, Options options = {});
    World(const World&) = delete;
    ~World(); ///< Kills the processes that are left, and lets their code return.

    Process& start(const fn::String& name, Process::Main main); ///< The process runs when the world does.

    /// `observer` is called for each fault that the world causes, with the name of the process (which may never have started)
    /// and, for a freeze, its length.
    void setHarmObserver(folly::Function<void(const fn::String& name, const char* harm, fn::Duration time)> observer);

    /// `program` runs when a process starts a file of that name, in whichever folder.
    void addProgram(const fn::String& fileName, Program program);

    /// Lets the world go on until `condition` holds, which is checked after every turn of a process. False if `bound` has passed
    /// before, or if no process will ever do anything again.
    bool run(folly::Function<bool()> condition, fn::Duration bound);
    /// Lets so much virtual time pass, or less if no process will ever do anything again.
    void runFor(fn::Duration time);

    fn::Duration now() const noexcept { return _now; } ///< Since the world began.
    std::uint64_t steps() const noexcept { return _steps; } ///< Chunks read, timers, tasks and exits so far.

    /// A hash of all bytes read from pipes, and of the readers and times. Two runs with the same hash are the same.
    std::uint64_t traceHash() const noexcept { return _trace; }

    /// In the order of their starts.
    const std::vector<std::unique_ptr<Process>>& processes() const noexcept { return _processes; }
    /// The latest living process of that name, or null. A module's process has the name of its library.
    Process* find(const fn::String& name) const;
    Process* find(int id) const; ///< Dead or alive; null if there was none.

    void signal(Process& process, int signal); ///< SIGSTOP and SIGCONT included.
    void freeze(Process& process, fn::Duration time); ///< The process gets no turns for so long; its messages wait.

    Decisions& decisions() noexcept { return _decisions; } ///< What it was made with.
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

    // Used by the processes and sockets.
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
    std::vector<Process*> _candidates; // A member only to keep its memory between turns.
    std::map<fn::String, SimulatedSocket*> _listeners;
    std::map<fn::String, Program> _programs;
    folly::Function<void(const fn::String&, const char*, fn::Duration)> _onHarm;
};

} // namespace core::simulation
