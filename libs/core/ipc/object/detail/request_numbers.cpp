#include "core/ipc/object/detail/request_numbers.h"
#include <algorithm>
#include <utility>

namespace ipc {
namespace {

// At most this many objects of one owner keep a number each. One more empties the table, and the highest number holds for all.
constexpr std::size_t mostObjects = 1000;

} // namespace

std::uint32_t RequestNumbers::last(ObjectId objectId) const
{
    const auto owner = _owners.find(ownerOf(objectId));
    if (owner == _owners.end()) return 0;
    const auto object = owner->second.objects.find(objectId);
    return object == owner->second.objects.end() ? owner->second.ofAll : object->second;
}

void RequestNumbers::cancelled(ObjectId objectId, std::uint32_t requestId)
{
    auto& [ofAll, objects] = _owners[ownerOf(objectId)];
    if (objects.size() >= mostObjects && !objects.contains(objectId)) {
        for (const auto& [other, number] : std::exchange(objects, {})) ofAll = std::max(ofAll, number);
    }
    auto& last = objects.try_emplace(objectId, ofAll).first->second;
    last = std::max(last, requestId);
}

} // namespace ipc
