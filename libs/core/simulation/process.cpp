#include "core/simulation/process.h"
#include "core/simulation/detail/fiber.h"
#include "core/simulation/detail/simulated_socket.h"
#include "core/simulation/world.h"
#include "foundation/unhandled_exception.h"
#include <algorithm>
#include <csignal>

namespace core::simulation {
namespace {

// When each world begins: 2020-01-01 00:00:00 UTC.
constexpr auto beginning = fn::Duration::seconds(1'577'836'800);

constexpr int mostDeadTurns = 1000;

} // namespace

Process::Process(World& world, int id, fn::String name, Process* parent)
    : _world(world),
      _id(id),
      _name(std::move(name)),
      _parent(parent)
{
    if (parent) _environment = parent->_environment;
}

Process::~Process() = default;

Process* Process::current() noexcept { return static_cast<Process*>(fn::uv::System::current()); }

void Process::run(Main main)
{
    _fiber = std::make_unique<Fiber>(std::make_unique<FiberStack>(), [this, main = std::move(main)]() mutable {
        std::int64_t status = 1;
        try {
            status = main();
        } catch (...) {
            fn::unhandledException();
        }
        main = {};
        destroyLocals();
        die(status, 0);
    });
}

void Process::destroyLocals()
{
    while (!_locals.empty()) {
        const auto local = _locals.back(); // Stays in the list meanwhile, since its destructor may ask for it.
        local.maker->destroy(local.object);
        std::erase_if(_locals, [&](const Local& other) { return other.maker == local.maker; });
    }
    finishCloses();
}

bool Process::isFrozen() const noexcept { return _frozenUntil && _world.now() < *_frozenUntil; }

bool Process::canRun(fn::Duration now) const noexcept
{
    if (!_fiber || (_frozenUntil && now < *_frozenUntil)) return false;
    return !_mayBlock || !_ready.empty() || !_events.empty() || !_closing.empty() || (_until && *_until <= now);
}

// --- Waiting, and what it ends with

void Process::wait(bool mayBlock, std::optional<fn::Duration> until)
{
    finishCloses();
    if (_isDead) {
        // A dead process whose code runs its loop again and again is left where it is.
        if (++_deadTurns > mostDeadTurns) _fiber->pause();
        return;
    }
    _mayBlock = mayBlock;
    _until = until;
    _fiber->pause();
    _mayBlock = false;
    _until.reset();
    _frozenUntil.reset();
}

void Process::deliver()
{
    if (_isDead) return deliverEnds();
    const auto due = _ready.size() + _events.size();
    // The tame answer delivers everything, as libuv does after a wait.
    const auto left = due > 1 ? _world._decisions.choose(Choice::Schedule, static_cast<std::uint32_t>(due)) : 0;
    for (auto count = due - left; count > 0 && !_isDead && deliverOne(); --count) { }
    finishCloses();
}

/// A dead process is told that each of its connections has ended, and nothing else.
void Process::deliverEnds()
{
    for (auto* const socket : std::vector(_sockets)) {
        if (std::ranges::find(_sockets, socket) != _sockets.end()) socket->deliverEnd();
    }
    finishCloses();
}

bool Process::deliverOne()
{
    if (_ready.empty() && _events.empty()) return false;
    ++_world._steps;
    const auto sources = static_cast<std::uint32_t>(_ready.size() + (_events.empty() ? 0 : 1));
    const auto chosen = _world._decisions.choose(Choice::Schedule, sources);
    if (chosen == _ready.size()) {
        auto event = std::exchange(_events.front(), {});
        _events.pop_front();
        event();
        return true;
    }
    auto* const socket = _ready[chosen];
    _ready.erase(_ready.begin() + chosen);
    socket->_isListed = false;
    if (!socket->isReady()) return true;
    socket->deliver();
    if (std::ranges::find(_sockets, socket) != _sockets.end()) touch(*socket); // It may be ready for more.
    return true;
}

void Process::touch(SimulatedSocket& socket)
{
    if (_isDead || socket._isListed || !socket.isReady()) return;
    socket._isListed = true;
    _ready.push_back(&socket);
}

void Process::finishCloses()
{
    while (!_closing.empty()) {
        auto* const socket = _closing.front();
        _closing.erase(_closing.begin());
        socket->finishClose();
    }
}

void Process::tookSteps(std::size_t count) { _world._steps += count; }

const fn::Clock& Process::clock() const noexcept { return _clock; }

fn::Duration Process::ProcessClock::monotonic() const
{
    return process._world.now() + fn::Duration::seconds(process._deadTurns);
}
fn::Duration Process::ProcessClock::sinceEpoch() const { return beginning + monotonic(); }

std::unique_ptr<fn::uv::System::Socket> Process::makeSocket(SocketUser& user)
{
    return std::make_unique<SimulatedSocket>(*this, user);
}

// --- Deaths

void Process::die(std::int64_t status, int signal)
{
    if (std::exchange(_isDead, true)) return;
    _status = status;
    _signal = signal;
    _world.trace(static_cast<std::uint64_t>(_id) << 32 ^ static_cast<std::uint64_t>(signal));
    for (auto* socket : _sockets) socket->cut();
    for (auto* socket : std::exchange(_ready, {})) socket->_isListed = false;
    _events.clear();
    for (const auto& process : _world._processes) {
        if (process->_parent == this && process->_parentDeathSignal != 0)
            process->receiveSignal(process->_parentDeathSignal);
    }
    if (_parent) _parent->childDied(*this);
}

void Process::childDied(Process& child)
{
    const auto known = std::ranges::find(_children, &child, &Child::process);
    if (_isDead || known == _children.end()) return;
    _events.emplace_back([this, &child] {
        const auto found = std::ranges::find(_children, &child, &Child::process);
        if (found == _children.end()) return; // `forget()` was called meanwhile.
        auto* const user = found->user;
        _children.erase(found);
        user->exited(child._status, child._signal);
    });
}

int Process::spawn(const fn::String& file, const std::vector<fn::String>& arguments, ChildUser& user)
{
    if (_isDead) return UV_ECANCELED;
    const int id = _world.launch(*this, file, arguments);
    if (id > 0) _children.push_back({ _world.find(id), &user });
    return id;
}

void Process::forget(ChildUser& user) noexcept
{
    std::erase_if(_children, [&](const Child& child) { return child.user == &user; });
}

int Process::kill(int processId, int signal)
{
    if (_isDead) return 0;
    auto* const process = _world.find(processId);
    if (!process || process->_isDead) return UV_ESRCH;
    process->receiveSignal(signal);
    return 0;
}

void Process::receiveSignal(int signal)
{
    if (_isDead) return;
    if (signal == SIGSTOP) {
        _frozenUntil = fn::Duration(INT64_MAX);
    } else if (signal == SIGCONT) {
        _frozenUntil.reset();
    } else if (const auto watched = std::ranges::find(_watched, signal, &std::pair<int, SignalUser*>::first);
               signal == SIGKILL || watched == _watched.end()) {
        die(0, signal);
    } else {
        _events.emplace_back([this, signal] {
            for (const auto& [number, user] : std::vector(_watched)) {
                if (number == signal && std::ranges::find(_watched, std::pair(number, user)) != _watched.end())
                    user->signalled();
            }
        });
    }
}

void Process::watchSignal(int signal, SignalUser& user) { _watched.emplace_back(signal, &user); }

void Process::unwatchSignal(SignalUser& user) noexcept
{
    std::erase_if(_watched, [&](const auto& watched) { return watched.second == &user; });
}

// --- What is the process's own

void Process::fillRandomly(std::span<std::uint8_t> bytes)
{
    // This is no decision: in the tamest story, too, the bytes must differ from all that were drawn before.
    for (auto& byte : bytes) {
        ++_world._randomBytes;
        byte = static_cast<std::uint8_t>((_world._randomBytes * 0x9e3779b97f4a7c15U) >> 56);
    }
}

bool Process::hasMemoryFor(std::size_t)
{
    if (!_isExposed || _isDead || !_world._decisions.happens(Choice::Fault, _world._options.failingAllocations))
        return true;
    _world.tellHarm(_name, "has no memory");
    return false;
}

void* Process::local(const LocalMaker& maker)
{
    const auto found = std::ranges::find(_locals, &maker, &Local::maker);
    if (found != _locals.end()) return found->object;
    auto* const object = maker.make(); // May make other locals first, which are then destroyed later.
    _locals.push_back({ &maker, object });
    return object;
}

} // namespace core::simulation
