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

PendingCall** PendingCalls::linkTo(std::uint32_t requestId)
{
    auto** link = &_buckets[requestId & (_buckets.size() - 1)];
    while (*link && (*link)->_requestId != requestId) link = &(*link)->_next;
    return link;
}

void PendingCalls::add(fn::AutoPtr<PendingCall> call)
{
    if (_count == _buckets.size()) grow();
    *linkTo(call->_requestId) = call.get();
    static_cast<void>(call.leak());
    ++_count;
}

void PendingCalls::grow()
{
    for (auto* call : std::exchange(_buckets, Buckets(2 * _buckets.size()))) {
        while (call) {
            auto* const next = std::exchange(call->_next, nullptr);
            *linkTo(call->_requestId) = call;
            call = next;
        }
    }
}

EndedCall PendingCalls::take(std::uint32_t requestId)
{
    auto** const link = linkTo(requestId);
    auto* const call = *link;
    if (!call) return {};
    *link = std::exchange(call->_next, nullptr);
    if (--_count == 0 && _buckets.size() > keptBuckets) _buckets = Buckets(firstBuckets);
    return end(call);
}

std::vector<EndedCall> PendingCalls::takeAll()
{
    std::vector<EndedCall> all;
    if (_count == 0) return all;
    all.reserve(std::exchange(_count, 0));
    for (auto* call : std::exchange(_buckets, Buckets(firstBuckets))) {
        while (call) {
            auto* const next = std::exchange(call->_next, nullptr);
            all.push_back(end(call));
            call = next;
        }
    }
    std::ranges::sort(all, {}, [](const EndedCall& ended) { return ended.call->requestId(); });
    return all;
}

EndedCall PendingCalls::end(PendingCall* call)
{
    if (call->_deadline) call->_deadline.invalidate();
    auto reference = std::move(call->_reference);
    return { std::move(reference), fn::AutoPtr<PendingCall>::adopt(call) };
}

} // namespace ipc
