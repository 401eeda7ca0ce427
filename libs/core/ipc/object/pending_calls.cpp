#include "core/ipc/object/pending_calls.h"
#include "core/ipc/object/callable_object_reference.h"
#include <algorithm>

namespace ipc {
namespace {

constexpr std::size_t leastBuckets = 16;
constexpr std::size_t keptBuckets = 4096; // More are given back when the last call has ended.

} // namespace

PendingCall::PendingCall(fn::AutoPtr<CallableObjectReference> reference, fn::String method, std::uint32_t requestId)
    : _reference(std::move(reference)),
      _method(std::move(method)),
      _requestId(requestId)
{
    reserveCancellation();
}

PendingCall::~PendingCall() = default;

void PendingCall::wasCancelled()
{
    if (const auto reference = _reference) reference->cancelCall(_requestId);
}

bool PendingCalls::contains(std::uint32_t requestId) const
{
    if (_buckets.empty()) return false;
    const auto* call = _buckets[requestId & (_buckets.size() - 1)].get();
    while (call && call->_requestId != requestId) call = call->_next.get();
    return call;
}

void PendingCalls::add(fn::AutoPtr<PendingCall> call)
{
    if (_count == _buckets.size()) resize(std::max(leastBuckets, 2 * _count));
    auto& bucket = bucketOf(call->_requestId);
    call->_next.swap(bucket);
    bucket.swap(call);
    ++_count;
}

PendingCalls::Ended PendingCalls::take(std::uint32_t requestId)
{
    if (_buckets.empty()) return {};
    auto* place = &bucketOf(requestId);
    while (*place && (*place)->_requestId != requestId) place = &(*place)->_next;
    if (!*place) return {};
    auto call = std::move(*place);
    place->swap(call->_next);
    if (--_count == 0 && _buckets.size() > keptBuckets) _buckets = {};
    return end(std::move(call));
}

std::vector<PendingCalls::Ended> PendingCalls::takeAll()
{
    std::vector<Ended> all;
    if (_count == 0) return all;
    all.reserve(_count);
    for (auto& bucket : std::exchange(_buckets, {})) {
        while (bucket) {
            auto call = std::move(bucket);
            bucket.swap(call->_next);
            all.push_back(end(std::move(call)));
        }
    }
    _count = 0;
    std::ranges::sort(all, {}, [](const Ended& ended) { return ended.call->requestId(); });
    return all;
}

PendingCalls::Ended PendingCalls::end(fn::AutoPtr<PendingCall> call)
{
    auto reference = std::move(call->_reference);
    return { std::move(reference), std::move(call) };
}

void PendingCalls::resize(std::size_t buckets)
{
    for (auto& bucket : std::exchange(_buckets, std::vector<Bucket>(buckets))) {
        while (bucket) {
            auto call = std::move(bucket);
            bucket.swap(call->_next);
            auto& place = bucketOf(call->_requestId);
            call->_next.swap(place);
            place.swap(call);
        }
    }
}

} // namespace ipc
