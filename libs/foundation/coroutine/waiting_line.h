#pragma once
#include "base/lifetime.h"
#include "foundation/promise.h"
#include <list>

namespace fn::internal {

/// Promises that are served in the order in which they came. One that is cancelled leaves the line. Those left at its end are
/// cancelled.
template <typename T> class WaitingLine {
public:
    WaitingLine() = default;
    WaitingLine(const WaitingLine&) = delete;
    WaitingLine& operator=(const WaitingLine&) = delete;
    ~WaitingLine()
    {
        _lifetime.end();
        while (!empty()) takeFirst().cancel();
    }

    bool empty() const noexcept { return _promises.empty(); }

    Promise<T> join()
    {
        const auto promise = _promises.emplace_back(Promise<T>::create());
        promise.onCancel(_lifetime.guard([this, place = std::prev(_promises.end())] { _promises.erase(place); }));
        return promise;
    }

    Promise<T> takeFirst()
    {
        auto first = std::move(_promises.front());
        _promises.pop_front();
        return first;
    }

private:
    std::list<Promise<T>> _promises;
    Lifetime _lifetime;
};

} // namespace fn::internal
