// An application of real processes, hit by real signals for a while, and judged by the truth of the simulated one.
#include "hub.h"
#include "judge.h"
#include "processes.h"
#include <CLI/CLI.hpp>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <thread>

namespace {

using namespace chaos;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using std::chrono::seconds;

volatile std::sig_atomic_t isInterrupted = 0;

struct Interrupted { };

constexpr auto bound = seconds(120); // For what takes a second where nobody else wants the processor.
constexpr auto hubStop = seconds(10);
constexpr std::int64_t mostMemoryKept = 1536 * 1024; // By the hub, ten seconds after.
#ifdef __SANITIZE_ADDRESS__
constexpr bool isMemoryMeasured = false; // Freed memory is kept on purpose.
#else
constexpr bool isMemoryMeasured = true;
#endif

class Run {
public:
    Run(const std::filesystem::path& folder, const std::string& program, std::uint64_t seed)
        : _journal(folder / "journal"),
          _random(seed),
          _hub(_family.start({ program, "--hub" }, folder / "output"))
    {
        _journal.seed() = seed;
        _journal.isResting() = true;
    }

    void go(seconds time)
    {
        await("the modules to be there", [&] { return _judge.areAllThere(); });
        _judge.countsAtStart = askForCounts();
        const auto memory = privateMemory(_hub.id());
        const auto files = openFiles(_hub.id());
        _journal.isResting() = false;
        renew();
        harm(time);
        rest();
        renew();
        await("all counts to be back at their start", [&] { return askForCounts() == *_judge.countsAtStart; });
        checkHub(memory, files);
        killHub();
        fmt::print("{} deaths of modules ({} of silence), {} given up; {} events, {} answers\n", _judge.deaths,
            _judge.silences, _judge.givenUp, _judge.events, _judge.answers());
    }

    bool hasFailed() const { return !_judge.violations().empty(); }
    const Judge& judge() const { return _judge; }

private:
    struct Stopped {
        Target process;
        Clock::time_point until;
    };

    std::uint64_t choose(std::uint64_t count) { return _random() % count; }

    void tell(const Event& event) { _journal.append(event); }

    /// Reads what has been told, and does what is due. Throws at the first violation.
    void turn()
    {
        const auto before = Clock::now();
        if (_lastTurn != Clock::time_point() && before - _lastTurn > milliseconds(500)) _judge.tookTooLong();
        _lastTurn = before;
        if (isInterrupted) throw Interrupted();
        std::erase_if(_stopped, [&](const Stopped& stopped) {
            if (stopped.until > before) return false;
            stopped.process.send(SIGCONT);
            return true;
        });
        while (const auto entry = _journal.read()) _judge.handleNext(*entry);
        _left = _family.reap();
        if (_family.hubStatus() >= 0 && !_judge.isEnding)
            _judge.violated(fmt::format("the hub ended with wait status {:x}", _family.hubStatus()));
        if (hasFailed()) throw std::runtime_error(_judge.violations().front());
        std::this_thread::sleep_for(milliseconds(10));
    }

    template <typename Condition> void await(const char* what, Condition condition)
    {
        const auto end = Clock::now() + bound;
        while (!condition()) {
            turn();
            if (Clock::now() > end) throw std::runtime_error(fmt::format("waited in vain for {}", what));
        }
    }

    Counts askForCounts()
    {
        _judge.counts.reset();
        _hub.send(SIGUSR1);
        await("the hub's counts", [&] { return _judge.counts.has_value(); });
        return *_judge.counts;
    }

    // --- Harm

    void harm(seconds time)
    {
        const auto begin = Clock::now();
        bool wasHubStopped = time < seconds(60);
        auto nextReport = begin + seconds(10);
        for (auto next = begin; Clock::now() - begin < time;) {
            turn();
            if (Clock::now() < next) continue;
            harmSomebody();
            next += milliseconds(choose(500)); // Four a second.
            if (!wasHubStopped && Clock::now() - begin > time / 2) {
                wasHubStopped = true;
                stop(_hub.id(), "hub", hubStop);
            }
            if (Clock::now() < nextReport) continue;
            nextReport += seconds(10);
            fmt::print("{} s: {} deaths, {} given up, {} answers\n",
                std::chrono::duration_cast<seconds>(Clock::now() - begin).count(), _judge.deaths, _judge.givenUp,
                _judge.answers());
            std::fflush(stdout);
        }
    }

    void harmSomebody()
    {
        constexpr std::array signals { SIGKILL, SIGTERM, SIGSEGV, SIGABRT, SIGSTOP };
        const auto children = childrenOf(_hub.id());
        if (children.empty()) return;
        const int signal = signals[choose(signals.size())];
        const auto time = milliseconds(1 + choose(8000));
        const pid_t id = children[choose(children.size())];
        const Target target(id);
        const auto module = moduleOf(id);
        if (module.empty()) return; // Just being started.
        if (signal == SIGSTOP) return stop(id, module, time);
        tell({ .deed = Deed::IsHarmed, .number = id, .other = signal, .text = module });
        target.send(signal);
    }

    void stop(pid_t id, const std::string& name, milliseconds time)
    {
        if (std::ranges::any_of(_stopped, [&](const Stopped& other) { return other.process.id() == id; })) return;
        Target target(id);
        tell({ .deed = Deed::IsHarmed, .number = id, .other = SIGSTOP, .value = time.count(), .text = name });
        target.send(SIGSTOP);
        _stopped.push_back({ std::move(target), Clock::now() + time });
    }

    // --- Rest

    void rest()
    {
        await("those who are stopped", [&] { return _stopped.empty(); });
        tell({ .deed = Deed::Rests });
        _journal.isResting() = true;
        await("calls to end and modules to be there", [&] { return _judge.isQuiet(); });
        // What is under way between processes is counted soon.
        const auto end = Clock::now() + bound;
        while (!_judge.agrees(askForCounts()) && Clock::now() < end) turn();
        _judge.checkAtRest();
        turn();
    }

    /// All modules end in good order and are started again.
    void renew()
    {
        const auto deaths = _judge.deaths;
        for (const pid_t id : childrenOf(_hub.id())) {
            const Target target(id);
            tell({ .deed = Deed::IsHarmed, .number = id, .other = SIGTERM, .text = moduleOf(id) });
            target.send(SIGTERM);
        }
        await("the modules to begin anew", [&] { return _judge.deaths >= deaths + modules && _judge.areAllThere(); });
    }

    void checkHub(std::size_t memoryAtStart, std::size_t filesAtStart)
    {
        const auto grown = [&] {
            return static_cast<std::int64_t>(privateMemory(_hub.id())) - static_cast<std::int64_t>(memoryAtStart);
        };
        const auto kib = [](std::int64_t bytes) { return bytes / 1024; };
        const auto atOnce = grown();
        for (const auto end = Clock::now() + seconds(10); Clock::now() < end && grown() > mostMemoryKept;) turn();
        fmt::print("The hub's memory: {} KiB at the start, {} more at once, {} more after rest\n",
            kib(static_cast<std::int64_t>(memoryAtStart)), kib(atOnce), kib(grown()));
        if (isMemoryMeasured && grown() > mostMemoryKept)
            _judge.violated(fmt::format("the hub has kept {} bytes", grown()));
        if (openFiles(_hub.id()) != filesAtStart)
            _judge.violated(
                fmt::format("the hub has {} files open, {} at the start", openFiles(_hub.id()), filesAtStart));
        turn();
    }

    /// In the middle of the load: whoever is left has to end by himself.
    void killHub()
    {
        _journal.isResting() = false;
        renew();
        for (const auto end = Clock::now() + seconds(1); Clock::now() < end;) turn();
        tell({ .deed = Deed::IsHarmed, .number = _hub.id(), .other = SIGKILL, .text = "hub" });
        _hub.send(SIGKILL);
        await("the processes to end with their hub", [&] { return _judge.isEnding && _left == 0; });
    }

    Journal _journal;
    std::mt19937_64 _random;
    Family _family;
    Target _hub;
    Judge _judge;
    std::vector<Stopped> _stopped;
    std::size_t _left = 0;
    Clock::time_point _lastTurn;
};

int run(const std::string& program, seconds time, std::uint64_t seed)
{
    char pattern[] = "/tmp/chaos.XXXXXX";
    const std::filesystem::path folder = ::mkdtemp(pattern);
    Journal::create(folder / "journal");
    ::setenv(Journal::pathVariable, (folder / "journal").c_str(), 1);
    fmt::print("Seed {}, {} s.\n", seed, time.count());
    int status = 0;
    Run run(folder, program, seed);
    try {
        run.go(time);
    } catch (const Interrupted&) {
        status = 130;
    } catch (const std::exception& failure) {
        run.judge().printStory(failure.what());
        std::printf("What was written meanwhile:\n");
        std::ifstream output(folder / "output");
        for (std::string line; std::getline(output, line);) std::printf("%s\n", line.c_str());
        fmt::print("\nFAILED with seed {}: {}\n", seed, failure.what());
        status = 1;
    }
    std::filesystem::remove_all(folder);
    return status;
}

} // namespace

int main(int argc, char** argv)
{
    CLI::App app("Hits the modules of an application with real signals, and judges what follows.");
    std::int64_t time = 10;
    std::uint64_t seed = std::random_device()();
    bool isHub = false;
    app.add_option("--seconds", time, "How long they are hit");
    app.add_option("--seed", seed, "Of whom is hit when and of what the modules do; a random one if there is none");
    app.add_flag("--hub", isHub, "What this program starts: the main process");
    CLI11_PARSE(app, argc, argv);
    try {
        if (isHub) return runHub();
        for (const int signal : { SIGINT, SIGTERM, SIGHUP }) std::signal(signal, [](int) { isInterrupted = 1; });
        return run(std::filesystem::read_symlink("/proc/self/exe"), seconds(time), seed);
    } catch (const std::exception& exception) {
        fmt::print(stderr, "chaos: {}\n", exception.what());
        return 2;
    }
}
