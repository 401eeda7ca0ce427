#include "core/ipc/dispatcher/worker_ids.h"
#include <algorithm>

namespace ipc {

void WorkerIds::died(WorkerId id)
{
    _deaths[id] = _nextSerial;
    if (id != 0) _free.emplace(_nextSerial, id);
    ++_nextSerial;
}

bool WorkerIds::mustTell(Listener& listener, WorkerId id) const
{
    const bool wasGivenOut = id < _next;
    if (wasGivenOut && !_deaths.contains(id)) return false;
    if (isTold(listener, id)) return false;
    if (!listener._toldAlone) listener._toldAlone = std::make_unique<Listener::Ids>();
    listener._toldAlone->set(id);
    return true;
}

bool WorkerIds::isTold(const Listener& listener, WorkerId id) const
{
    if (listener._toldAlone && listener._toldAlone->test(id)) return true;
    const auto death = _deaths.find(id);
    return death != _deaths.end() && listener._acceptedAt < death->second;
}

std::optional<WorkerId> WorkerIds::next(std::span<const Listener* const> others) const
{
    if (_next != _count) return _next;
    if (_free.empty()) return std::nullopt;
    auto eldest = UINT64_MAX;
    Listener::Ids toldAlone;
    for (const auto* other : others) {
        eldest = std::min(eldest, other->_acceptedAt);
        if (other->_toldAlone) toldAlone |= *other->_toldAlone;
    }
    for (const auto& [death, id] : _free) {
        if (death > eldest) break;
        if (!toldAlone.test(id)) return id;
    }
    return _free.begin()->second;
}

void WorkerIds::giveOut(WorkerId id)
{
    if (_next != _count) ++_next;
    const auto death = _deaths.find(id);
    if (death == _deaths.end()) return;
    _free.erase(death->second);
    _deaths.erase(death);
}

void WorkerIds::forget(Listener& listener, WorkerId id) const
{
    if (listener._toldAlone) listener._toldAlone->reset(id);
}

} // namespace ipc
