#include "core/ipc/object/detail/pending_calls.h"
#include "core/ipc/object/callable_object_reference.h"
#include "core/ipc/object/detail/mismatch.h"
#include "core/ipc/object/detail/object_host.h"
#include <algorithm>

namespace ipc {

constexpr std::size_t keptBuckets = 4096; // A larger table is freed when the last call has ended.

PendingCall::PendingCall(fn::internal::PromiseNodeBase& node, std::string_view method)
    : _node(node),
      _method(method) { }

PendingCall::~PendingCall() = default;

void PendingCall::wasCancelled()
{
    if (const auto reference = _reference) reference->cancelCall(_requestId);
}

void PendingCall::fulfillFrom(PayloadReader& result, const ObjectReference& reference)
{
    const auto begin = result.offset();
    try {
        fulfillWith(result);
    } catch (const fn::mpack::MismatchException& mismatch) {
        throwMismatch(fmt::format("{}.{}, result", reference.className(), _method), result.bytes(), begin, mismatch);
    }
}

void PendingCall::fulfillWithValue(const fn::Value& result, ObjectHost& host, const ObjectReference& reference)
{
    const auto encoded = host.encode([&](PayloadWriter& writer) { writer.serialize(result); });
    PayloadReader reader(host, encoded);
    fulfillFrom(reader, reference);
}

bool PendingCalls::contains(std::uint32_t requestId) const { return _calls.contains(requestId); }

void PendingCalls::add(fn::AutoPtr<PendingCall> call)
{
    const auto requestId = call->requestId();
    if (!_spare) return static_cast<void>(_calls.emplace(requestId, std::move(call)));
    _spare.key() = requestId;
    _spare.mapped() = std::move(call);
    _calls.insert(std::move(_spare));
}

EndedCall PendingCalls::take(std::uint32_t requestId)
{
    auto taken = _calls.extract(requestId);
    if (_calls.empty() && _calls.bucket_count() > keptBuckets) _calls = {};
    if (!taken) return {};
    auto ended = end(std::move(taken.mapped()));
    _spare = std::move(taken);
    return ended;
}

std::vector<EndedCall> PendingCalls::takeAll()
{
    std::vector<EndedCall> all;
    all.reserve(_calls.size());
    for (auto& [requestId, call] : std::exchange(_calls, {})) all.push_back(end(std::move(call)));
    std::ranges::sort(all, {}, [](const EndedCall& ended) { return ended.call->requestId(); });
    return all;
}

EndedCall PendingCalls::end(fn::AutoPtr<PendingCall> call)
{
    call->_deadline.invalidate();
    auto reference = std::move(call->_reference);
    return { std::move(reference), std::move(call) };
}

} // namespace ipc
