#include "truth.h"
#include <algorithm>

// What the supervisor says and does, held against its rules (docs/modules.md) and against what really happened.

namespace simulated {
namespace {

constexpr auto relaunchDelay = fn::Duration::seconds(1);
constexpr auto connectionTimeout = fn::Duration::seconds(30);

/// "" if the text names none.
std::string moduleIn(const std::string& text)
{
    const auto begin = text.find(moduleName);
    if (begin == std::string::npos) return {};
    return text.substr(
        begin, text.find_first_not_of("0123456789", begin + std::string_view(moduleName).size()) - begin);
}

} // namespace

void Truth::supervises(const std::string& line)
{
    const auto name = moduleIn(line);
    auto& module = _supervised[name];
    const auto says = [&](std::string_view text) { return line.find(text) != std::string::npos; };
    if (says("Launching module")) {
        isLaunched(name, module, line);
    } else if (says("has connected")) {
        if (says(module.tag)) module.isConnecting = false;
    } else if (says("timed out")) {
        checkTime(name + " timed out", module.launched + connectionTimeout);
        const bool isKnown = ++module.timeouts > 1;
        if (!module.isConnecting || isKnown != says("giving up")) violated("a wrong time-out: " + line);
        ends(name, module);
    } else if (says("did exit")) {
        if (says("did exit before") != (module.isConnecting && module.launches > 1))
            violated("given up, or not, against the rules: " + line);
        if (!module.hasEnded()) violated("an end without a reason: " + line);
        ends(name, module);
    } else if (says("will be terminated")) {
        ends(name, module);
    }
}

/// Once, and once more after each of its ends, unless it has been given up.
void Truth::isLaunched(const std::string& name, Supervised& module, const std::string& line)
{
    if (isStopped) violated("a module is launched though the application ends");
    const bool isFirst = line.ends_with("(attempt 1)");
    if (isFirst ? module.launches > 0 && !module.isGivenUp : !module.end || module.isGivenUp)
        violated(fmt::format("{} is launched again without a reason", name));
    if (!isFirst && module.end) checkTime(name + " is launched again", *module.end + relaunchDelay);
    const auto tag = line.find('(') + 1;
    module = { .isExpected = module.isExpected,
        .tag = line.substr(tag, line.find(')') - tag),
        .launches = isFirst ? 1 : module.launches + 1,
        .timeouts = isFirst ? 0 : module.timeouts,
        .isConnecting = true,
        .wasConnected = module.wasConnected,
        .launched = now() };
    for (auto& freeze : _freezes) {
        if (freeze.name == name) freeze.end = std::min(freeze.end, now());
    }
}

void Truth::ends(const std::string& name, Supervised& module)
{
    if (module.end) violated(name + " ended twice");
    module.end = now();
    module.isConnecting = false;
}

void Truth::checkTime(const std::string& what, fn::Duration due)
{
    if (now() < due - earliness) violated(what + " too early");
    if (now() > due + lateness + frozen(nameOf(mainProcess()), due) && now() > slowUntil) violated(what + " too late");
}

fn::Duration Truth::frozen(const std::string& name, fn::Duration since) const
{
    fn::Duration sum;
    for (const auto& freeze : _freezes) {
        const auto time = std::min(freeze.end, now()) - std::max(freeze.begin, since);
        if (freeze.name == name) sum = sum + std::max(time, fn::Duration());
    }
    return sum;
}

bool Truth::wasFrozen(const std::string& name) const
{
    return now() < slowUntil || frozen(name, now() - pongTime - lateness) > leastFreeze;
}

/// What is said of a module is explained by what has been done to it since it was launched.
bool Truth::isExplained(const std::string& text) const
{
    const auto says = [&](std::string_view part) { return text.find(part) != std::string::npos; };
    if (says("on purpose") || (isHubDead() && says("connect to "))) return true;
    if (!_givenUp.empty() && text == "ipc.moduleManager: Aborting launch") return true;
    const auto found = _supervised.find(moduleIn(text));
    if (found == _supervised.end()) return false;
    const auto& [name, module] = *found;
    if (says("Failed to start")) return module.harms.contains("is not started");
    if (says("timed out at launch"))
        return module.harms.contains("hangs from the start") || now() < slowUntil
            || frozen(name, module.launched) + frozen(nameOf(mainProcess()), module.launched)
            > fn::Duration::seconds(15);
    if (says("failed to connect")) return module.timeouts > 1;
    if (says("did exit before")) return module.hasEnded();
    if (says("was ended by signal") || says("ended with exit code"))
        return module.harms.contains("is killed") || module.harms.contains("is asked to end");
    return (says("stopped responding") || says("it does not take the")) && wasFrozen(name);
}

/// Who was silent for longer than a PING may stay unanswered has been reported, and each module runs, unless it has been given up.
void Truth::checkSupervisor()
{
    for (const auto& [process, name, begin, end] : _freezes) {
        const auto connected = _connected.find(process);
        if (end - begin < longestSilence || connected == _connected.end() || connected->second.since > begin) continue;
        const auto isThen = [&](fn::Duration moment) { return moment > begin && moment < end; };
        if (std::ranges::none_of(_silences[name], isThen) && !isHubDead() && !_leaving.contains(process))
            violated(fmt::format("the silence of {} was not noticed", name));
    }
    // A launch that fails ends the launches of those behind it.
    const bool mayBeMissing =
        std::ranges::any_of(_givenUp, [](const auto& message) { return message.starts_with("Failed to start"); });
    for (const auto& [name, module] : _supervised) {
        if (!module.isExpected || module.isGivenUp || mayBeMissing || isHubDead()) continue;
        if (modulesEndIdle ? !module.wasConnected : !isThere(name)) violated(name + " is not there");
        if (module.isConnecting && now() > module.launched + connectionTimeout + lateness)
            violated(name + " has not timed out");
    }
}

} // namespace simulated
