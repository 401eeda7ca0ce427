#pragma once
#include <memory>
#include <type_traits>
#include <utility>

namespace fn {

template <typename Signature> class FunctionRef;

/// A callable that is borrowed for the length of a call: no allocation, two words. A parameter, not a member.
template <typename R, typename... Args> class FunctionRef<R(Args...)> {
public:
    /// Borrows `callable`, which lives as long as this is called.
    template <typename F>
    requires(!std::is_same_v<std::remove_cvref_t<F>, FunctionRef> && std::is_invocable_r_v<R, F&, Args...>)
        FunctionRef(F&& callable)
    noexcept
        : _callable(const_cast<void*>(static_cast<const void*>(std::addressof(callable)))),
          _call([](void* object, Args... args) -> R {
              return (*static_cast<std::remove_reference_t<F>*>(object))(std::forward<Args>(args)...);
          })
    {
    }

    R operator()(Args... args) const { return _call(_callable, std::forward<Args>(args)...); }

private:
    void* _callable;
    R (*_call)(void*, Args...);
};

} // namespace fn
