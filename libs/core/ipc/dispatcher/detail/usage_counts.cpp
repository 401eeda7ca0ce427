#include "core/ipc/dispatcher/detail/usage_counts.h"
#include "foundation/assertion.h"
#include <algorithm>
#include <iterator>

namespace ipc {
namespace {

template <typename Receivers> auto lowerBound(Receivers& receivers, WorkerId workerId)
{
    return std::lower_bound(receivers.begin(), receivers.end(), workerId,
        [](const UsageCounts::Receiver& receiver, WorkerId id) { return receiver.workerId < id; });
}

template <typename Receivers> auto find(Receivers& receivers, WorkerId workerId)
{
    const auto place = lowerBound(receivers, workerId);
    return place != receivers.end() && place->workerId == workerId ? place : receivers.end();
}

} // namespace

std::span<const UsageCounts::Receiver> UsageCounts::receivers(ObjectId objectId) const
{
    const auto found = _entries.find(objectId);
    if (found == _entries.end()) return {};
    return found->second.receivers;
}

std::uint32_t UsageCounts::sentCount(ObjectId objectId) const
{
    const auto found = _entries.find(objectId);
    return found == _entries.end() ? 0 : found->second.sent;
}

std::size_t UsageCounts::concerned(WorkerId worker) const
{
    const auto index = _index.find(worker);
    return index == _index.end() ? 0 : index->second.owned.size() + index->second.held.size();
}

std::size_t UsageCounts::ownedCount(WorkerId owner) const
{
    const auto index = _index.find(owner);
    return index == _index.end() ? 0 : index->second.owned.size();
}

std::vector<ObjectId> UsageCounts::owned(WorkerId owner, ObjectId from, std::size_t most) const
{
    std::vector<ObjectId> ids;
    const auto index = _index.find(owner);
    if (index == _index.end()) return ids;
    std::ranges::copy_if(index->second.owned, std::back_inserter(ids), [from](ObjectId id) { return id >= from; });
    const auto end = ids.begin() + static_cast<std::ptrdiff_t>(std::min(most, ids.size()));
    std::ranges::partial_sort(ids, end);
    ids.erase(end, ids.end());
    return ids;
}

bool UsageCounts::canCount(
    WorkerId sender, std::span<const ObjectId> objectIds, std::span<const WorkerId> receivers) const
{
    std::size_t newEntries = 0;
    std::size_t newForeign = 0;
    for (const auto objectId : objectIds) {
        const auto found = _entries.find(objectId);
        if (found == _entries.end()) {
            ++(ownerOf(objectId) == sender ? newEntries : newForeign);
            continue;
        }
        const auto& entry = found->second;
        if (ownerOf(objectId) == sender && entry.sent >= limits::uses) return false;
        for (const auto receiver : receivers) {
            const auto holder = find(entry.receivers, receiver);
            if (holder != entry.receivers.end() && holder->count >= limits::uses) return false;
        }
    }
    return hasRoom(sender, newEntries) && hasRoom(NO_WORKER_ID, newForeign);
}

bool UsageCounts::hasRoom(WorkerId share, std::size_t newEntries) const
{
    if (newEntries == 0) return true;
    const auto charged = _charged.find(share);
    return newEntries + (charged == _charged.end() ? 0 : charged->second) <= _maxObjects;
}

UsageCounts::Entry& UsageCounts::entry(ObjectId objectId, WorkerId sender)
{
    const auto [place, isNew] = _entries.try_emplace(objectId);
    if (isNew) {
        place->second.chargedTo = ownerOf(objectId) == sender ? sender : NO_WORKER_ID;
        ++_charged[place->second.chargedTo];
        _index[ownerOf(objectId)].owned.insert(objectId);
    }
    return place->second;
}

void UsageCounts::erase(Entries::iterator entry)
{
    const auto [objectId, record] = std::pair(entry->first, std::move(entry->second));
    _entries.erase(entry);
    const auto charged = _charged.find(record.chargedTo);
    if (--charged->second == 0) _charged.erase(charged);
    _index[ownerOf(objectId)].owned.erase(objectId);
    for (const auto& receiver : record.receivers) _index[receiver.workerId].held.erase(objectId);
}

void UsageCounts::countReceived(WorkerId sender, ObjectId objectId, WorkerId receiver)
{
    if (ownerOf(objectId) == receiver) return;
    auto& receivers = entry(objectId, sender).receivers;
    const auto place = lowerBound(receivers, receiver);
    if (place != receivers.end() && place->workerId == receiver) {
        ++place->count;
    } else {
        receivers.insert(place, Receiver { receiver, 1 });
        _index[receiver].held.insert(objectId);
    }
}

std::optional<UsageCounts::Release> UsageCounts::countSent(ObjectId objectId)
{
    auto& record = entry(objectId, ownerOf(objectId));
    ++record.sent;
    if (!record.receivers.empty()) return std::nullopt;
    return takeRelease(_entries.find(objectId));
}

/// Erases an entry that has no receivers. Gives the release that its owner must be sent.
std::optional<UsageCounts::Release> UsageCounts::takeRelease(Entries::iterator entry)
{
    const Release due { entry->first, entry->second.sent };
    erase(entry);
    if (!FN_ASSERT(due.count > 0, fn::sites::releasedIsCounted)) return std::nullopt;
    return due;
}

UsageCounts::Outcome UsageCounts::release(
    WorkerId worker, ObjectId objectId, std::int32_t count, std::optional<Release>& due)
{
    const auto found = _entries.find(objectId);
    const bool isReferenced = found != _entries.end() && !found->second.receivers.empty();
    if (!FN_ASSERT(isReferenced, fn::sites::objectIsReferenced)) return Outcome::NoEntry;
    auto& receivers = found->second.receivers;
    const auto holder = find(receivers, worker);
    if (!FN_ASSERT(holder != receivers.end(), fn::sites::workerHoldsObject)) return Outcome::NoEntry;
    const bool isCovered = count >= 0 && holder->count >= static_cast<std::uint32_t>(count);
    if (!FN_ASSERT(isCovered, fn::sites::workerHoldsAsMany)) return Outcome::BadCount;

    holder->count -= static_cast<std::uint32_t>(count);
    if (holder->count > 0) return Outcome::Done;
    receivers.erase(holder);
    _index[worker].held.erase(objectId);
    if (receivers.empty()) due = takeRelease(found);
    return Outcome::Done;
}

std::vector<UsageCounts::Release> UsageCounts::workerDied(WorkerId worker, std::size_t most)
{
    std::vector<Release> due;
    const auto index = _index.find(worker);
    if (index == _index.end()) return due;
    auto& [owned, held] = index->second;
    for (; most > 0 && !held.empty(); --most) {
        const auto found = _entries.find(*held.begin());
        held.erase(held.begin());
        auto& receivers = found->second.receivers;
        receivers.erase(find(receivers, worker));
        if (!receivers.empty()) continue;
        if (const auto release = takeRelease(found)) due.push_back(*release);
    }
    for (; most > 0 && !owned.empty(); --most) erase(_entries.find(*owned.begin()));
    if (owned.empty() && held.empty()) _index.erase(worker);
    return due;
}

} // namespace ipc
