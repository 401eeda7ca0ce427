#include "judge.h"
#include "hub.h"
#include <algorithm>
#include <csignal>
#include <cstdio>

namespace chaos {
namespace {

constexpr std::size_t storyLines = 100'000; // A minute or two.
constexpr std::size_t linesTold = 60;

} // namespace

std::string Counts::toString() const
{
    return fmt::format(
        "{} objects, {} registrations, {} waiters, {} workers", objects, registrations, waiters, workers);
}

Judge::Judge() : Truth(true)
{
    // Real machines are late.
    longestSilence = fn::Duration::seconds(7);
    for (int number = 1; number <= modules; ++number) {
        const auto name = fmt::format("{}{}", moduleName, number);
        _modules[name];
        expects(name);
    }
}

void Judge::handleNext(const Journal::Entry& entry)
{
    _now = fn::Duration::microseconds(entry.microseconds);
    ++events;
    const auto& event = entry.event;
    switch (event.deed) {
    case Deed::Starts: return starts(event);
    case Deed::Exits: return exits(event);
    case Deed::IsHarmed: return isHarmed(event);
    case Deed::Counts:
        counts = Counts { event.number, event.other, event.value, static_cast<std::int64_t>(event.object) };
        return;
    case Deed::GivesUp: ++givenUp; break;
    case Deed::FindsSilent: findsSilent(std::string(event.text)); break;
    default: break;
    }
    handle(event);
}

// --- Who lives

bool Judge::isRunning(int process) const
{
    const auto found = _processes.find(process);
    return found != _processes.end() && !found->second.isDead;
}

void Judge::starts(const Event& event)
{
    const std::string name(event.text);
    auto& process = _processes[event.process] = { .name = name };
    _processOf[event.number] = event.process;
    if (name == "hub") {
        _hub = event.process;
        return;
    }
    auto& module = _modules[name];
    if (isRunning(module.process)) violated(fmt::format("{} starts a second time while it runs", name));
    module.process = event.process;
    process.isDead = _doomed.erase(event.number) > 0;
    print(fmt::format("{} ({}) starts as process {}", name, event.process, event.number));
}

void Judge::dies(const std::string& name)
{
    auto& module = _modules[name];
    if (const auto found = _processes.find(module.process); found != _processes.end()) {
        found->second.isDead = true;
        forget(module.process);
    }
    module.process = 0;
    module.signals.clear();
    std::erase_if(_doomed, [&](const auto& entry) { return entry.second == name; });
    ++deaths;
}

/// `event.number` is the system's id of the process, `event.other` the signal.
void Judge::isHarmed(Event event)
{
    const std::string name(event.text);
    const auto how = fmt::format("gets SIG{}", sigabbrev_np(event.other));
    if (name == "hub") return hubIsHarmed(event.other);
    const auto found = _processOf.find(event.number);
    const int process = found == _processOf.end() || !isRunning(found->second) ? 0 : found->second;
    const bool isStop = event.other == SIGSTOP;
    if (!isStop && !process) _doomed[event.number] = name;
    event.number = process;
    event.how = how;
    handle(event);
    auto& module = _modules[name];
    module.signals.insert(event.other);
    if (isStop) module.lastStop = _now;
    if (!isStop && process) {
        _processes[process].isDead = true;
        forget(process);
    }
}

void Judge::hubIsHarmed(int signal)
{
    print(fmt::format("the hub gets SIG{}", sigabbrev_np(signal)));
    excuseFreezes();
    _starvedUntil = _now + recently;
    if (signal == SIGKILL) _processes[_hub].isDead = isEnding = true;
}

void Judge::exits(const Event& event)
{
    const std::string name(event.text);
    const auto& module = _modules[name];
    const auto status = event.value;
    const bool wasAsked = module.signals.contains(SIGTERM);
    const bool isClean = status == 0 && (wasAsked || (module.process && !isAlive(module.process)));
    // The loader ends a module that takes longer than two seconds for its end.
    const bool wasSlow = status == 1 && wasAsked && (_now - module.lastStop < recently || _now < _starvedUntil);
    print(fmt::format("{} ({}) exits with status {}, signal {}", name, module.process, status, event.other));
    if (event.other ? !module.signals.contains(event.other) : !isClean && !wasSlow)
        violated(fmt::format("{} ended with status {}, signal {}", name, status, event.other));
    dies(name);
}

void Judge::findsSilent(const std::string& name)
{
    ++silences;
    const bool isExplained = _now - _modules[name].lastStop < recently || _now < _starvedUntil;
    if (!isExplained) violated(fmt::format("{} was said not to respond and had not been stopped", name));
    dies(name); // The supervisor kills it.
}

bool Judge::isThere(const fn::String& name) const
{
    const auto process = _modules.at(name.toStdString()).process;
    return process && isAlive(process) && connected().contains(process);
}

bool Judge::areAllThere() const
{
    return std::ranges::all_of(_modules, [&](const auto& module) { return isThere(module.first); });
}

// --- What is said

bool Judge::isExplained(const std::string& text) const
{
    // The manager of one module about the others' workers; its own has a line of its own.
    if (text.starts_with("ipc.moduleManager: Received Not Responding notification for unmanaged workerId"))
        return silences > 0;
    return Truth::isExplained(text);
}

bool Judge::agrees(const Counts& seen) const
{
    return seen.objects == static_cast<std::int64_t>(countedObjects())
        && seen.registrations - countsAtStart->registrations == static_cast<std::int64_t>(registrations().size())
        && seen.waiters == countsAtStart->waiters && seen.workers == countsAtStart->workers;
}

void Judge::checkWorld()
{
    if (counts && !agrees(*counts))
        violated(fmt::format("the hub counts {}; the living hold {} objects and have registered {}", counts->toString(),
            countedObjects(), registrations().size()));
}

void Judge::print(const std::string& line)
{
    if (_story.size() == storyLines) _story.pop_front();
    _story.push_back(fmt::format("{:.6f} {}", _now.totalSeconds(), line));
}

/// The lines with a word and number that the violation names ("call 12"), and the last ones.
void Judge::printStory(const std::string& violation) const
{
    std::vector<std::string> names;
    for (const char* word : { "call ", "thing ", "process " }) {
        const auto begin = violation.find(word);
        if (begin == std::string::npos) continue;
        auto end = begin + std::string_view(word).size();
        while (end < violation.size() && std::isdigit(violation[end])) ++end;
        names.push_back(violation.substr(begin, end - begin));
    }
    const auto isConcerned = [&](const std::string& line) {
        return std::ranges::any_of(names, [&](const std::string& name) {
            const auto at = line.find(name);
            return at != std::string::npos && !std::isdigit(line.c_str()[at + name.size()]);
        });
    };
    const auto firstTold = _story.size() - std::min(_story.size(), linesTold);
    for (std::size_t index = 0; index < _story.size(); ++index) {
        if (index >= firstTold || isConcerned(_story[index])) fmt::print("{}\n", _story[index]);
    }
}

} // namespace chaos
