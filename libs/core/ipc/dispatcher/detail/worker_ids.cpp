#include "core/ipc/dispatcher/detail/worker_ids.h"
#include <algorithm>
#include <utility>

namespace ipc {

void WorkerIds::died(WorkerId id)
{
    if (id >= _states.size()) _states.resize(id + std::size_t(1));
    _states[id] = { _nextSerial++, _latestFree };
    if (id == 0) return;
    (_latestFree == NO_WORKER_ID ? _longestFree : _states[_latestFree].next) = id;
    _latestFree = id;
}

bool WorkerIds::mustTell(Listener& listener, WorkerId id) const
{
    const bool wasGivenOut = id < _next;
    if (wasGivenOut && deathOf(id) == alive) return false;
    if (isTold(listener, id)) return false;
    if (!listener._toldAlone) listener._toldAlone = std::make_unique<Listener::Ids>();
    listener._toldAlone->set(id);
    return true;
}

bool WorkerIds::isTold(const Listener& listener, WorkerId id) const
{
    if (listener._toldAlone && listener._toldAlone->test(id)) return true;
    const auto death = deathOf(id);
    return death != alive && listener._acceptedAt < death;
}

std::optional<WorkerId> WorkerIds::next(std::span<const Listener* const> others) const
{
    if (_next != _count) return _next;
    if (_longestFree == NO_WORKER_ID) return std::nullopt;
    auto eldest = UINT64_MAX;
    Listener::Ids toldAlone;
    for (const auto* other : others) {
        eldest = std::min(eldest, other->_acceptedAt);
        if (other->_toldAlone) toldAlone |= *other->_toldAlone;
    }
    for (auto id = _longestFree; id != NO_WORKER_ID && _states[id].death <= eldest; id = _states[id].next) {
        if (!toldAlone.test(id)) return id;
    }
    return _longestFree;
}

void WorkerIds::giveOut(WorkerId id)
{
    if (_next != _count) ++_next;
    if (deathOf(id) == alive) return;
    const auto [death, previous, next] = std::exchange(_states[id], {});
    (previous == NO_WORKER_ID ? _longestFree : _states[previous].next) = next;
    (next == NO_WORKER_ID ? _latestFree : _states[next].previous) = previous;
}

void WorkerIds::forget(Listener& listener, WorkerId id) const
{
    if (listener._toldAlone) listener._toldAlone->reset(id);
}

} // namespace ipc
