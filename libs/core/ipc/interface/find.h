#pragma once
#include "core/ipc/interface/reference.h"
#include "core/ipc/registry.h"

namespace ipc {

/// Finds the object of interface I that is registered first, in whichever worker it is. If there is none, waits up to `timeout`
/// for one, then fails with `fn::OperationTimedOutException`. Needs a running loop.
template <typename I> fn::Promise<Ref<I>> find(Worker& worker, fn::Duration timeout)
{
    return worker.registry()->getInstance<Reference<I>>(timeout).then(
        [](fn::AutoPtr<Reference<I>>&& found) { return Ref<I>(std::move(found)); });
}

} // namespace ipc
