#include "judge.h"
#include <algorithm>
#include <csignal>
#include <regex>

namespace chaos {
namespace {

constexpr std::size_t storyLines = 100'000; // Minutes.
constexpr std::ptrdiff_t lastLines = 60;
constexpr auto longestHearing =
    fn::Duration::seconds(30); // Of a death, by somebody who is stopped, from a hub that is.

} // namespace

Judge::Judge() : Truth(true)
{
    longestSilence = fn::Duration::seconds(7); // Real machines are late.
    for (int number = 1; number <= modules; ++number) {
        const auto name = fmt::format("{}{}", moduleName, number);
        _modules[name];
        expects(name);
    }
}

void Judge::handleNext(const Event& event, std::int64_t microseconds)
{
    _now = fn::Duration::microseconds(microseconds);
    checkLeftCalls();
    const std::string name(event.text);
    switch (event.deed) {
    case Deed::Starts: return starts(event, name);
    case Deed::Exits: return exits(event, name);
    case Deed::IsHarmed: return isHarmed(event, name);
    case Deed::Counts:
        counts = { event.number, event.other, event.value, static_cast<std::int64_t>(event.object) };
        return;
    case Deed::GivesUp: ++givenUp; break;
    case Deed::FindsSilent: isSilent(name); break;
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
    const auto how = fmt::format("gets SIG{}", sigabbrev_np(event.other));
    if (name == "hub") {
        print("the hub " + how);
        excuseFreezes();
        excuseSlowness();
        isEnding = event.other == SIGKILL;
        if (isEnding) _dead.insert(_hub);
        return;
    }
    auto& module = _modules.at(name);
    const int systemId = event.number;
    const int process = module.systemId == systemId ? module.process : 0;
    event.number = process;
    event.how = how;
    handle(event);
    module.signals.insert(event.other);
    if (event.other == SIGSTOP) {
        module.lastStop = _now;
        return;
    }
    module.doomed = systemId;
    _dead.insert(process);
    forget(process);
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
        : (event.value == 0 && (wasAsked || hasLeft)) || (event.value == 1 && wasAsked && isSlow(module));
    if (!isRight) violated(fmt::format("{} ended with status {}, signal {}", name, event.value, event.other));
    dies(module);
}

void Judge::isSilent(const std::string& name)
{
    auto& module = _modules.at(name);
    ++silences;
    if (!isSlow(module)) violated(fmt::format("{} was said not to respond and had not been stopped", name));
    dies(module); // The supervisor kills it.
}

void Judge::dies(Module& module)
{
    ++deaths;
    _dead.insert(module.process);
    forget(module.process);
    for (const int call : module.process ? openCalls(module.process) : std::vector<int>())
        _leftCalls.emplace_back(call, _now + longestHearing);
    module = { .signals = {}, .lastStop = module.lastStop };
}

void Judge::checkLeftCalls()
{
    for (; !_leftCalls.empty() && _leftCalls.front().second < _now; _leftCalls.pop_front()) {
        if (isOpen(_leftCalls.front().first) && !isEnding)
            violated(fmt::format("call {} has not ended with its owner", _leftCalls.front().first));
    }
}

bool Judge::isThere(const fn::String& name) const
{
    const int process = _modules.at(name.toStdString()).process;
    return isAlive(process) && connected().contains(process);
}

bool Judge::areAllThere() const
{
    return std::ranges::all_of(_modules, [&](const auto& module) { return isThere(module.first); });
}

/// What one manager says of another's module; its own has more to say.
bool Judge::isExplained(const std::string& text) const
{
    const bool isOfAnother = text.find("Not Responding notification for unmanaged") != std::string::npos;
    return isOfAnother ? givenUp > 0 : Truth::isExplained(text);
}

bool Judge::agree() const
{
    const Counts expected { static_cast<std::int64_t>(countedObjects()),
        countsAtStart.registrations + static_cast<std::int64_t>(registrations().size()), countsAtStart.waiters,
        countsAtStart.workers };
    return counts == expected;
}

void Judge::checkWorld()
{
    if (agree()) return;
    violated(fmt::format("the hub counts {} objects, {} registrations, {} waiters, {} workers; "
                         "the living hold {} objects and have registered {} times",
        counts->objects, counts->registrations - countsAtStart.registrations, counts->waiters, counts->workers,
        countedObjects(), registrations().size()));
}

void Judge::print(const std::string& line)
{
    if (_story.size() == storyLines) _story.pop_front();
    _story.push_back(fmt::format("{:.6f} {}", _now.totalSeconds(), line));
}

void Judge::printStory(const std::string& violation) const
{
    const std::regex name("(call|thing|object|process|chaos_module_)[ ]?[0-9]+");
    std::smatch found;
    const bool hasName = std::regex_search(violation, found, name);
    const std::regex concerned(hasName ? found.str() + "\\b" : "VIOLATED");
    for (auto line = _story.begin(); line != _story.end(); ++line) {
        if (_story.end() - line <= lastLines || std::regex_search(*line, concerned)) fmt::print("{}\n", *line);
    }
}

} // namespace chaos
