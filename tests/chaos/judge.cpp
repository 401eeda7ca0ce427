#include "judge.h"
#include <algorithm>
#include <csignal>

namespace chaos {
namespace {

constexpr std::size_t storyLines = 2'000; // Seconds.

} // namespace

Judge::Judge() : Truth(true)
{
    longestSilence = fn::Duration::seconds(7); // Real machines are late.
    leastFreeze = fn::Duration::seconds(1);
    earliness = fn::Duration::milliseconds(200);
    lateness = fn::Duration::seconds(10);
    for (int number = 1; number <= modules; ++number) {
        const auto name = fmt::format("{}{}", simulated::moduleName, number);
        _modules[name];
        expects(name);
    }
}

void Judge::handleNext(const Event& event, std::int64_t microseconds)
{
    _now = fn::Duration::microseconds(microseconds);
    const std::string name(event.text);
    switch (event.deed) {
    case Deed::Starts: return starts(event, name);
    case Deed::Exits: return exits(event, name);
    case Deed::IsHarmed: return isHarmed(event, name);
    case Deed::Counts:
        counts = { event.number, event.other, event.value, static_cast<std::int64_t>(event.object) };
        return;
    case Deed::GivesUp: ++givenUp; break;
    case Deed::FindsSilent:
        ++silences;
        dies(_modules.at(name)); // The supervisor kills it.
        break;
    default: break;
    }
    handle(event);
}

void Judge::starts(const Event& event, const std::string& name)
{
    print(fmt::format("{} ({}) starts as process {}", name, event.process, event.number));
    _names[event.process] = name;
    if (name == "hub") {
        _hub = event.process;
        return;
    }
    auto& module = _modules.at(name);
    if (isRunning(module.process)) violated(fmt::format("{} starts a second time while it runs", name));
    module.process = event.process;
    module.systemId = event.number;
    if (module.doomed == event.number) _dead.insert(event.process);
}

/// `event.number` is the system's id of the process, `event.other` the signal.
void Judge::isHarmed(Event event, const std::string& name)
{
    print(fmt::format("{} gets SIG{}", name, sigabbrev_np(event.other)));
    if (name == "hub") {
        excuseFreezes();
        excuseSlowness();
        isEnding = event.other == SIGKILL;
        if (isEnding) _dead.insert(_hub);
        return;
    }
    auto& module = _modules.at(name);
    const int systemId = event.number;
    event.number = module.systemId == systemId ? module.process : 0;
    event.how = event.other == SIGSTOP ? "is frozen" : event.other == SIGTERM ? "is asked to end" : "is killed";
    handle(event);
    module.signals.insert(event.other);
    if (event.other == SIGSTOP) return;
    module.doomed = systemId;
    _dead.insert(event.number);
}

void Judge::exits(const Event& event, const std::string& name)
{
    auto& module = _modules.at(name);
    print(fmt::format("{} ({}) exits with status {}, signal {}", name, module.process, event.value, event.other));
    const bool wasAsked = module.signals.contains(SIGTERM);
    const bool hasLeft = module.process && !isAlive(module.process);
    // One that takes more than two seconds for its end is ended by the loader, with 1.
    const bool isRight = event.other != 0
        ? module.signals.contains(event.other)
        : (event.value == 0 && (wasAsked || hasLeft)) || (event.value == 1 && wasAsked && wasFrozen(name));
    if (!isRight) violated(fmt::format("{} ended with status {}, signal {}", name, event.value, event.other));
    dies(module);
}

void Judge::dies(Module& module)
{
    ++deaths;
    _dead.insert(module.process);
    forget(module.process);
    module = {};
}

bool Judge::isThere(const std::string& name) const
{
    const int process = _modules.at(name).process;
    return isAlive(process) && connected().contains(process);
}

bool Judge::areAllThere() const
{
    return std::ranges::all_of(_modules, [&](const auto& module) { return isThere(module.first); });
}

bool Judge::isQuiet() const { return openCalls().empty() && areAllThere() && keepOneBody() && counts == expected(); }

/// What one manager says of another's module; its own has more to say.
bool Judge::isExplained(const std::string& text) const
{
    const bool isOfAnother = text.find("Not Responding notification for unmanaged") != std::string::npos;
    return isOfAnother ? givenUp > 0 : Truth::isExplained(text);
}

Counts Judge::expected() const
{
    return { static_cast<std::int64_t>(countedObjects()),
        countsAtStart.registrations + static_cast<std::int64_t>(registrations().size()), countsAtStart.waiters,
        countsAtStart.workers };
}

void Judge::checkWorld()
{
    const auto right = expected();
    if (counts == right) return;
    violated(
        fmt::format("the hub counts {} objects, {} registrations, {} waiters, {} workers; right are {}, {}, {}, {}",
            counts->objects, counts->registrations, counts->waiters, counts->workers, right.objects,
            right.registrations, right.waiters, right.workers));
}

void Judge::print(const std::string& line)
{
    if (_story.size() == storyLines) _story.pop_front();
    _story.push_back(fmt::format("{:.6f} {}", _now.totalSeconds(), line));
}

void Judge::printStory() const
{
    for (const auto& line : _story) fmt::print("{}\n", line);
}

} // namespace chaos
