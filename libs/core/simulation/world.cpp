#include "core/simulation/world.h"
#include "core/simulation/detail/fiber.h"
#include "core/simulation/detail/module_loader.h"
#include "core/simulation/detail/simulated_socket.h"
#include "foundation/assertion.h"
#include "foundation/io/path.h"
#include <algorithm>
#include <bit>
#include <csignal>
#include <cstring>

namespace core::simulation {
namespace {

// With a smaller socket a large message would take longer than a participant may be silent.
constexpr std::size_t leastSocketBytes = 512;

} // namespace

World::World(Decisions& decisions, Options options) : _decisions(decisions), _options(options)
{
    addProgram(moduleLoaderName, runModuleLoader);
}

World::~World() // NOLINT(bugprone-exception-escape): a process that cannot end ends the program.
{
    for (const auto& process : _processes) process->die(0, SIGKILL);
    while (turn()) { }
}

Process& World::add(fn::String name, Process* parent)
{
    const int id = static_cast<int>(_processes.size()) + 1;
    _processes.push_back(std::unique_ptr<Process>(new Process(*this, id, std::move(name), parent)));
    return *_processes.back();
}

Process& World::start(const fn::String& name, Process::Main main)
{
    auto& process = add(name, nullptr);
    process.run(std::move(main));
    return process;
}

void World::addProgram(const fn::String& fileName, Program program)
{
    _programs.insert_or_assign(fileName, std::move(program));
}

void World::setHarmObserver(folly::Function<void(const fn::String&, const char*, fn::Duration)> observer)
{
    _onHarm = std::move(observer);
}

void World::tellHarm(const fn::String& name, const char* harm, fn::Duration time)
{
    if (_onHarm) _onHarm(name, harm, time);
}

int World::launch(Process& parent, const fn::String& file, const std::vector<fn::String>& arguments)
{
    const auto program = _programs.find(fn::Path::parsePath(file).fileName);
    if (program == _programs.end()) return UV_ENOENT;
    // The process of a module has the name of its library.
    const auto named = program->first == moduleLoaderName && arguments.size() > 1 ? arguments[1] : file;
    const auto fileName = fn::Path::parsePath(named).fileName;
    const fn::String name = fileName.view().substr(0, fileName.view().rfind('.'));
    if (_decisions.happens(Choice::Fault, _options.failingLaunches)) {
        tellHarm(name, "is not started");
        return UV_EAGAIN;
    }
    auto& process = add(name, &parent);
    process._isHanging = _decisions.happens(Choice::Fault, _options.hangingLaunches);
    if (process._isHanging) tellHarm(name, "hangs from the start");
    process._isExposed = true;
    if (!process._isHanging) process.run([&run = program->second, arguments] { return run(arguments); });
    return process.id();
}

// --- Going on

bool World::run(folly::Function<bool()> condition, fn::Duration bound)
{
    const auto end = _now + bound;
    while (!condition()) {
        if (_now >= end || !turn()) return false;
    }
    return true;
}

void World::runFor(fn::Duration time)
{
    const auto end = _now + time;
    run([&] { return _now >= end; }, time);
    _now = std::max(_now, end); // For a run that ends early, since no process has anything to do any more.
}

/// Gives one process a turn. False if no process will ever have one again.
bool World::turn()
{
    FN_ASSERT(!Process::current(), fn::sites::worldIsRunFromOutside);
    auto* process = choose();
    while (!process) {
        if (!passTime()) return false;
        process = choose();
    }
    process->_lastTurn = ++_turns;
    const auto turnTime = _options.turnTime.totalMicroseconds();
    _now = _now + fn::Duration(_decisions.choose(Choice::Schedule, static_cast<std::uint32_t>(turnTime)) + 1);
    harm(*process);
    trace(static_cast<std::uint64_t>(process->id()) << 48 ^ static_cast<std::uint64_t>(_now.totalMicroseconds()));
    resume(*process);
    return true;
}

Process* World::choose()
{
    _candidates.clear();
    for (const auto& process : _processes) {
        if (process->_isDead && process->_fiber) return process.get(); // Its code returns first.
        if (process->canRun(_now)) _candidates.push_back(process.get());
    }
    if (_candidates.empty()) return nullptr;
    // The tame answer is the process that has waited longest: none starves when a story has come to its end.
    std::ranges::sort(_candidates, {}, &Process::_lastTurn);
    return _candidates[_decisions.choose(Choice::Schedule, static_cast<std::uint32_t>(_candidates.size()))];
}

/// When all processes wait, moves the time to the first moment at which one can go on. False if there is none.
bool World::passTime()
{
    std::optional<fn::Duration> next;
    const auto consider = [&](std::optional<fn::Duration> moment) {
        if (moment && (!next || *moment < *next)) next = moment;
    };
    for (const auto& process : _processes) {
        if (process->_isDead || process->isStopped()) continue;
        if (process->isFrozen())
            consider(process->_frozenUntil);
        else
            consider(process->_until);
    }
    if (!next) return false;
    _now = std::max(_now, *next);
    return true;
}

void World::harm(Process& process)
{
    if (!process._isExposed || process._isDead) return;
    if (_decisions.happens(Choice::Fault, _options.deaths)) {
        tellHarm(process.name(), "is killed");
        if (_decisions.choose(Choice::Fault, 2) == 0) return process.die(0, SIGKILL);
        process._diesInWrite = true;
    }
    if (_decisions.happens(Choice::Fault, _options.freezes)) {
        const auto most = static_cast<std::uint32_t>(_options.longestFreeze.totalMilliseconds());
        const auto time = fn::Duration::milliseconds(_decisions.choose(Choice::Fault, most) + 1);
        tellHarm(process.name(), "is frozen", time);
        freeze(process, time);
    }
}

void World::resume(Process& process)
{
    if (process.isFrozen() && !process._isDead) return;
    if (process._isDead && !process._hasStarted) {
        process._fiber.reset();
        return;
    }
    process._hasStarted = true;
    auto* const outer = fn::uv::System::exchangeCurrent(&process);
    process._fiber->resume();
    fn::uv::System::exchangeCurrent(outer);
    if (process._isDead) process._fiber.reset(); // Its code has returned, or never will.
}

// --- Who is there

Process* World::find(const fn::String& name) const
{
    const auto found = std::ranges::find_if(_processes.rbegin(), _processes.rend(),
        [&](const auto& process) { return !process->_isDead && process->name() == name; });
    return found == _processes.rend() ? nullptr : found->get();
}

Process* World::find(int id) const
{
    return id > 0 && static_cast<std::size_t>(id) <= _processes.size()
        ? _processes[static_cast<std::size_t>(id) - 1].get()
        : nullptr;
}

void World::signal(Process& process, int signal) { process.receiveSignal(signal); }

void World::freeze(Process& process, fn::Duration time)
{
    process._frozenUntil = std::max(_now + time, process._frozenUntil.value_or(fn::Duration()));
}

// --- For processes and sockets

bool World::addListener(const fn::String& name, SimulatedSocket& listener)
{
    return _listeners.emplace(name, &listener).second;
}

void World::removeListener(const fn::String& name, SimulatedSocket& listener) noexcept
{
    const auto found = _listeners.find(name);
    if (found != _listeners.end() && found->second == &listener) _listeners.erase(found);
}

SimulatedSocket* World::listener(const fn::String& name) const
{
    const auto found = _listeners.find(name);
    return found == _listeners.end() ? nullptr : found->second;
}

std::size_t World::cut(std::size_t bytes)
{
    if (bytes <= 1 || !_decisions.happens(Choice::Bytes, _options.cuts)) return bytes;
    return bytes - _decisions.choose(Choice::Bytes, static_cast<std::uint32_t>(bytes));
}

/// The tame answer is the full size; each halving of it down to the least is as likely.
std::size_t World::socketCapacity()
{
    const auto digits = static_cast<std::uint32_t>(std::bit_width(_options.socketBytes / leastSocketBytes));
    return std::max(_options.socketBytes >> _decisions.choose(Choice::Bytes, digits), leastSocketBytes);
}

void World::trace(std::uint64_t number) noexcept
{
    _trace = (_trace ^ number) * 0x9e3779b97f4a7c15U;
    _trace ^= _trace >> 29;
}

void World::trace(std::string_view bytes) noexcept
{
    trace(bytes.size());
    for (; bytes.size() >= sizeof(std::uint64_t); bytes.remove_prefix(sizeof(std::uint64_t))) {
        std::uint64_t word = 0;
        std::memcpy(&word, bytes.data(), sizeof(word));
        trace(word);
    }
    std::uint64_t rest = 0;
    std::memcpy(&rest, bytes.data(), bytes.size());
    trace(rest);
}

} // namespace core::simulation
