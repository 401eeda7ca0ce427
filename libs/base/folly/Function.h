#pragma once
// folly::Function where folly is not packaged; CMake takes the real one where it finds it.
#include <cstddef>
#include <functional>
#include <type_traits>
#include <utility>

namespace folly {

template <typename Signature> class Function;

namespace internal {

/// Callables that can be null themselves (pointers, std::function and the like). A null one makes an empty Function.
template <typename F>
concept Nullable = std::is_pointer_v<F> || std::is_member_pointer_v<F> || requires(const F& callee)
{
    callee.operator bool();
    callee == nullptr;
};

/// The part of Function that is the same for all signatures.
template <typename Signature> class FunctionStorage {
    using Callee = std::move_only_function<Signature>;

public:
    FunctionStorage() noexcept = default;
    FunctionStorage(std::nullptr_t) noexcept { }

    template <typename F>
    requires(!std::is_base_of_v<FunctionStorage, std::remove_cvref_t<F>> && std::is_constructible_v<Callee, F>)
        FunctionStorage(F&& callee)
    {
        if constexpr (Nullable<std::remove_cvref_t<F>>) {
            if (callee == nullptr) return;
        }
        _callee = std::forward<F>(callee);
    }

    explicit operator bool() const noexcept { return static_cast<bool>(_callee); }
    friend bool operator==(const FunctionStorage& function, std::nullptr_t) noexcept { return !function._callee; }

protected:
    // Calling an empty std::move_only_function is undefined, so each call tests for it first.
    void requireCallee() const
    {
        if (!_callee) [[unlikely]]
            throw std::bad_function_call();
    }

    Callee _callee;
};

} // namespace internal

/// A callable of any type that takes `Args` and gives R. Move-only, so that it can hold move-only captures; three words are
/// stored in place. Calling an empty Function throws std::bad_function_call. A Function that was moved from is empty.
///
/// `Function<R(Args...) const>` can be called through a const reference; a noexcept signature takes noexcept callables.
template <typename R, typename... Args, bool isNoexcept>
class Function<R(Args...) noexcept(isNoexcept)> : public internal::FunctionStorage<R(Args...) noexcept(isNoexcept)> {
public:
    using internal::FunctionStorage<R(Args...) noexcept(isNoexcept)>::FunctionStorage;

    R operator()(Args... args) noexcept(isNoexcept)
    {
        this->requireCallee();
        return this->_callee(std::forward<Args>(args)...);
    }
};

template <typename R, typename... Args, bool isNoexcept>
class Function<R(Args...) const noexcept(isNoexcept)>
    : public internal::FunctionStorage<R(Args...) const noexcept(isNoexcept)> {
public:
    using internal::FunctionStorage<R(Args...) const noexcept(isNoexcept)>::FunctionStorage;

    R operator()(Args... args) const noexcept(isNoexcept)
    {
        this->requireCallee();
        return this->_callee(std::forward<Args>(args)...);
    }
};

} // namespace folly
