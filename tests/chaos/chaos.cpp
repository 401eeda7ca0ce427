// An application of real processes, hit by real signals for a while, and judged by the truth of the simulated one.
#include "journal.h"
#include "judge.h"
#include "processes.h"
#include <CLI/CLI.hpp>
#include <chrono>
#include <csignal>
#include <thread>

namespace {

using namespace chaos;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using std::chrono::seconds;

volatile std::sig_atomic_t isInterrupted = 0;

constexpr auto bound = seconds(120); // For what takes a second where nobody else wants the processor.
#ifdef __SANITIZE_ADDRESS__
constexpr std::int64_t mostKilobytesKept = INT64_MAX; // It keeps what is freed on purpose.
#else
constexpr std::int64_t mostKilobytesKept = 1536;
#endif

class Run {
public:
    Run(const std::filesystem::path& folder, std::uint64_t seed)
        : _folder(folder),
          _journal(folder / "journal", seed),
          _random(seed),
          _family(folder / "output")
    {
        _journal.setResting(true);
    }

    /// Gives the status to exit with.
    int go(seconds time)
    try {
        await("the modules to be there", [&] { return _judge.areAllThere(); });
        askForCounts();
        _judge.countsAtStart = *_judge.counts;
        const auto memory = privateKilobytes(_family.hub());
        const auto files = openFiles(_family.hub());
        load();
        harm(time);
        rest();
        renew();
        await("all counts to be back at their start", [&] {
            askForCounts();
            return _judge.counts == _judge.countsAtStart;
        });
        checkHub(memory, files);
        load();
        killHub();
        return 0;
    } catch (const std::exception& failure) {
        if (isInterrupted) return 130;
        _judge.printStory();
        std::ifstream output(_folder / "output");
        for (std::string line; std::getline(output, line);) fmt::print("written: {}\n", line);
        fmt::print("\nFAILED: {}\n", failure.what());
        return 1;
    }

private:
    struct Hit {
        pid_t id;
        std::string name;
        Clock::time_point until; // If it is stopped.
    };

    /// Reads what has been told, and does what is due. Throws at the first violation.
    void turn()
    {
        const auto now = Clock::now();
        if (now - std::exchange(_lastTurn, now) > milliseconds(500)) _judge.excuseSlowness();
        std::erase_if(_stopped, [&](const Hit& stopped) {
            if (stopped.until > now) return false;
            send(stopped, SIGCONT);
            return true;
        });
        while (const auto told = _journal.read()) _judge.handleNext(told->first, told->second);
        _isAnybodyLeft = _family.reap();
        if (_family.hasHubEnded() && !_judge.isEnding) _judge.violated("the hub has ended");
        if (!_judge.violations().empty()) throw std::runtime_error(_judge.violations().front());
        if (isInterrupted) throw std::runtime_error("interrupted");
        std::this_thread::sleep_for(milliseconds(10));
    }

    template <typename Condition> void await(const char* what, Condition condition)
    {
        for (const auto end = Clock::now() + bound; !condition(); turn()) {
            if (Clock::now() > end) throw std::runtime_error(fmt::format("waited in vain for {}", what));
        }
    }

    void askForCounts()
    {
        _judge.counts.reset();
        ::kill(_family.hub(), SIGUSR1);
        await("the hub's counts", [&] { return _judge.counts.has_value(); });
    }

    void load()
    {
        _journal.setResting(false);
        renew();
    }

    /// All modules end in good order and are started again.
    void renew()
    {
        const int deaths = _judge.deaths;
        for (const pid_t id : childrenOf(_family.hub())) hit(id, moduleOf(id), SIGTERM);
        await("the modules to begin anew", [&] { return _judge.deaths >= deaths + modules && _judge.areAllThere(); });
    }

    // --- Harm

    void harm(seconds time)
    {
        const auto begin = Clock::now();
        bool wasHubStopped = time < seconds(60);
        for (auto next = begin; Clock::now() - begin < time; turn()) {
            if (Clock::now() < next) continue;
            next += milliseconds(_random() % 500); // Four a second.
            if (const auto children = childrenOf(_family.hub()); !children.empty())
                harmOne(children[_random() % children.size()]);
            if (!wasHubStopped && Clock::now() - begin > time / 2) {
                wasHubStopped = true;
                hit(_family.hub(), "hub", SIGSTOP, seconds(10));
            }
        }
    }

    void harmOne(pid_t id)
    {
        constexpr std::array signals { SIGKILL, SIGTERM, SIGSEGV, SIGABRT, SIGSTOP };
        const int signal = signals[_random() % signals.size()];
        const milliseconds time(1 + _random() % 8000);
        const auto module = moduleOf(id);
        if (!module.empty()) hit(id, module, signal, signal == SIGSTOP ? time : milliseconds()); // Else just forked.
    }

    void hit(pid_t id, const std::string& name, int signal, milliseconds time = {})
    {
        const Hit hit { id, name, Clock::now() + time };
        if (time > milliseconds()) {
            if (std::ranges::find(_stopped, id, &Hit::id) != _stopped.end()) return;
            _stopped.push_back(hit);
        }
        send(hit, signal, time);
    }

    void send(const Hit& hit, int signal, milliseconds time = {})
    {
        if (signal != SIGCONT || hit.id == _family.hub())
            _journal.tell(
                { .deed = Deed::IsHarmed, .number = hit.id, .other = signal, .value = time.count(), .text = hit.name });
        _family.send(hit.id, hit.name, signal);
    }

    // --- What is left

    void rest()
    {
        _journal.setResting(true); // At once: what the last ones left behind is not to be cancelled by chance.
        await("those who are stopped", [&] { return _stopped.empty(); });
        // For a while: what a process had begun before it heard that all rest may still follow.
        const auto end = Clock::now() + bound;
        for (auto since = Clock::now(); Clock::now() < end && Clock::now() - since < seconds(1);) {
            askForCounts();
            if (!_judge.isQuiet()) since = Clock::now();
        }
        _judge.checkAtRest();
        turn();
    }

    void checkHub(std::int64_t memoryAtStart, std::ptrdiff_t filesAtStart)
    {
        const auto grown = [&] { return privateKilobytes(_family.hub()) - memoryAtStart; };
        const auto atOnce = grown();
        for (const auto end = Clock::now() + seconds(10); Clock::now() < end && grown() > mostKilobytesKept;) turn();
        fmt::print("The hub's memory: {} KiB at the start, {} more now, {} more after a rest\n", memoryAtStart, atOnce,
            grown());
        if (grown() > mostKilobytesKept) _judge.violated(fmt::format("the hub has kept {} KiB", grown()));
        const auto files = openFiles(_family.hub());
        if (files != filesAtStart)
            _judge.violated(fmt::format("the hub has {} files open, {} at the start", files, filesAtStart));
        turn();
    }

    /// In the middle of the load: whoever is left has to end by himself.
    void killHub()
    {
        for (const auto end = Clock::now() + seconds(1); Clock::now() < end;) turn();
        hit(_family.hub(), "hub", SIGKILL);
        await("the processes to end with their hub", [&] { return _judge.isEnding && !_isAnybodyLeft; });
        if (_judge.answers() == 0) throw std::runtime_error("nobody has answered");
        fmt::print("{} deaths of modules ({} for silence), {} given up, {} answers\n", _judge.deaths, _judge.silences,
            _judge.givenUp, _judge.answers());
    }

    const std::filesystem::path _folder;
    simulated::Journal _journal;
    std::mt19937_64 _random;
    Family _family;
    Judge _judge;
    std::vector<Hit> _stopped;
    bool _isAnybodyLeft = true;
    Clock::time_point _lastTurn = Clock::now();
};

} // namespace

int main(int argc, char** argv)
{
    CLI::App app("Hits the modules of an application with real signals, and judges what follows.");
    std::int64_t time = 10;
    std::uint64_t seed = std::random_device()();
    app.add_option("--seconds", time, "How long they are hit");
    app.add_option("--seed", seed, "Of who is hit when, and of what the modules do; random if there is none");
    CLI11_PARSE(app, argc, argv);
    for (const int signal : { SIGINT, SIGTERM, SIGHUP }) std::signal(signal, [](int) { isInterrupted = 1; });
    std::string pattern = std::filesystem::temp_directory_path() / "chaos.XXXXXX";
    const std::filesystem::path folder = ::mkdtemp(pattern.data());
    ::setenv(simulated::Journal::pathVariable, (folder / "journal").c_str(), 1);
    fmt::print("Seed {}, {} s.\n", seed, time);
    const int status = Run(folder, seed).go(seconds(time));
    std::filesystem::remove_all(folder);
    return status;
}
