#include "core/ipc/object/detail/pending_calls.h"
#include "core/ipc/object/callable_object_reference.h"
#include <algorithm>

namespace ipc {

constexpr std::size_t keptBuckets = 4096; // A larger table is freed when the last call has ended.

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

bool PendingCalls::contains(std::uint32_t requestId) const { return _calls.contains(requestId); }

void PendingCalls::add(fn::AutoPtr<PendingCall> call)
{
    const auto requestId = call->requestId();
    _calls.emplace(requestId, std::move(call));
}

PendingCalls::Ended PendingCalls::take(std::uint32_t requestId)
{
    auto taken = _calls.extract(requestId);
    if (_calls.empty() && _calls.bucket_count() > keptBuckets) _calls = {};
    return taken ? end(std::move(taken.mapped())) : Ended();
}

std::vector<PendingCalls::Ended> PendingCalls::takeAll()
{
    std::vector<Ended> all;
    all.reserve(_calls.size());
    for (auto& [requestId, call] : std::exchange(_calls, {})) all.push_back(end(std::move(call)));
    std::ranges::sort(all, {}, [](const Ended& ended) { return ended.call->requestId(); });
    return all;
}

PendingCalls::Ended PendingCalls::end(fn::AutoPtr<PendingCall> call)
{
    auto reference = std::move(call->_reference);
    return { std::move(reference), std::move(call) };
}

} // namespace ipc
