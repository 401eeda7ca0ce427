#pragma once
#include "truth.h"
#include <deque>

namespace chaos {

using simulated::Deed;
using simulated::Event;

inline constexpr int modules = 6;

/// What the hub counts in one moment.
struct Counts {
    std::int64_t objects, registrations, waiters, workers;
    bool operator==(const Counts&) const = default;
};

/// The truth about real processes, told by their journal. A process counts as dead from the moment in which somebody is about to
/// kill it: what it still does until then is true, but nothing is asked of it.
class Judge final : public simulated::Truth {
public:
    Judge();

    void handleNext(const Event& event, std::int64_t microseconds);
    /// Nobody got the processor when he should have: silence and slowness are explained for a while.
    void excuseSlowness() { slowUntil = _now + fn::Duration::seconds(20); }

    bool areAllThere() const; ///< All modules run and are connected.
    bool isQuiet() const; ///< Nothing is left to be done, and the counts agree with what the living hold.
    void printStory() const; ///< How it ended.

    std::optional<Counts> counts; ///< The latest ones.
    Counts countsAtStart {};
    int deaths = 0; ///< Of modules.
    int givenUp = 0;
    int silences = 0;

private:
    struct Module {
        int process = 0; // The latest; 0 until it has said that it starts.
        int systemId = 0;
        int doomed = 0; // The system's id of one that is killed, and may not have said yet that it starts.
        std::set<int> signals; // Sent to the latest.
    };

    fn::Duration now() const override { return _now; }
    bool isRunning(int process) const override { return process && !_dead.contains(process); }
    std::string nameOf(int process) const override { return _names.at(process); }
    int mainProcess() const override { return _hub; }
    bool isThere(const std::string& module) const override;
    bool isExplained(const std::string& text) const override;
    void checkWorld() override;
    void print(const std::string& line) override;

    Counts expected() const;
    void starts(const Event& event, const std::string& name);
    void isHarmed(Event event, const std::string& name);
    void exits(const Event& event, const std::string& name);
    void dies(Module& module);

    fn::Duration _now;
    int _hub = 0;
    std::map<std::string, Module> _modules;
    std::map<int, std::string> _names;
    std::set<int> _dead; // Processes.
    std::deque<std::string> _story;
};

} // namespace chaos
