#pragma once
#include "foundation/promise.h"

namespace fn::internal {

/// The maker's end of a promise, for a task that may be dropped without having run: what is unsettled then is cancelled, so that who
/// awaits it hears of it, be it that he holds the promise himself.
template <typename T> class Settler {
public:
    explicit Settler(Promise<T> promise) noexcept : _promise(std::move(promise)) { }
    Settler(Settler&&) noexcept = default;
    Settler& operator=(Settler&&) = delete;
    ~Settler()
    {
        if (_promise) _promise.cancel();
    }

    const Promise<T>& operator*() const noexcept { return _promise; }

private:
    Promise<T> _promise;
};

} // namespace fn::internal
