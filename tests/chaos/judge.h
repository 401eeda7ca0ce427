#pragma once
#include "journal.h"
#include "truth.h"
#include <deque>

namespace chaos {

/// What the hub counts, in one moment.
struct Counts {
    std::int64_t objects = 0;
    std::int64_t registrations = 0;
    std::int64_t waiters = 0;
    std::int64_t workers = 0;
    bool operator==(const Counts&) const = default;
    std::string toString() const;
};

/// The truth about real processes, told by their journal. A process counts as dead from the moment in which somebody is about to
/// kill it; what it still does until then is true, but nothing is asked of it.
class Judge final : public simulated::Truth {
public:
    Judge();

    void handleNext(const Journal::Entry& entry);
    void tookTooLong() { _starvedUntil = _now + recently; } ///< Nobody here got the processor when he should have.

    bool areAllThere() const; ///< All modules run and are connected.
    bool isQuiet() const { return openCalls() == 0 && areAllThere(); }
    bool agrees(const Counts& counts) const; ///< With what the living hold.
    std::optional<Counts> counts; ///< The latest ones.
    std::optional<Counts> countsAtStart;

    std::size_t deaths = 0; ///< Of modules.
    std::size_t givenUp = 0;
    std::size_t silences = 0;
    std::size_t events = 0;
    void printStory(const std::string& violation) const; ///< What is told of whom it names.

private:
    static constexpr auto recently = fn::Duration::seconds(20); // How long a stop may be felt.

    struct Process {
        std::string name;
        bool isDead = false;
    };
    struct Module {
        int process = 0; // The latest; 0 until it has said that it starts.
        std::set<int> signals; // Sent to its latest process.
        fn::Duration lastStop = fn::Duration() - recently;
    };

    fn::Duration now() const override { return _now; }
    bool isRunning(int process) const override;
    std::string nameOf(int process) const override { return _processes.at(process).name; }
    int mainProcess() const override { return _hub; }
    bool isThere(const fn::String& module) const override;
    bool isExplained(const std::string& text) const override;
    void checkWorld() override;
    void print(const std::string& line) override;

    void starts(const Event& event);
    void isHarmed(Event event);
    void hubIsHarmed(int signal);
    void exits(const Event& event);
    void dies(const std::string& module);
    void findsSilent(const std::string& module);

    fn::Duration _now;
    fn::Duration _starvedUntil;
    int _hub = 0;
    std::map<int, Process> _processes;
    std::map<std::string, Module> _modules;
    std::map<int, int> _processOf; // By the system's id.
    std::map<int, std::string> _doomed; // Who was killed before it said that it starts, by the system's id.
    std::deque<std::string> _story;
};

} // namespace chaos
