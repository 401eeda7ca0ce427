#pragma once
#include <type_traits>

namespace fn {

template <typename T> class Promise;

namespace internal {

template <typename C> inline constexpr bool isComplete = requires { sizeof(C); };

/// Whether the first parameter may be `this` of a const member function, or a lambda's own, which the language hands over as const&.
/// A lambda is incomplete while its body is compiled, unless it is generic. A class that can not be copied has an owner.
template <typename T, typename First, typename... Rest> consteval bool mayBeThis()
{
    using C = std::remove_cvref_t<First>;
    if constexpr (!std::is_class_v<C>)
        return false;
    else if constexpr (isComplete<C>)
        return std::is_empty_v<
                   C> || !std::is_copy_constructible_v<C> || (!std::is_default_constructible_v<C> && std::is_invocable_r_v<Promise<T>, First, Rest...>);
    else
        return true;
}

/// Whether an argument is sure to be there while the coroutine runs: a value is in its frame, and & stands for what outlives it.
template <typename Parameter>
inline constexpr bool isKept =
    !std::is_reference_v<
        Parameter> || (std::is_lvalue_reference_v<Parameter> && !std::is_const_v<std::remove_reference_t<Parameter>>);

template <typename T> consteval bool parametersAreKept() { return true; }
template <typename T, typename First, typename... Rest> consteval bool parametersAreKept()
{
    return (isKept<First> || mayBeThis<T, First, Rest...>()) && (isKept<Rest> && ...);
}

/// GCC 12 frees a lambda or an aggregate twice that is written inside an expression with co_await, where that has something to free.
/// What is handed over by its name is copied instead. `F` is deduced from F&&.
#if defined(__GNUC__) && !defined(__clang__) && __GNUC__ < 13
template <typename F>
inline constexpr bool isFreedOnce =
    std::is_lvalue_reference_v<
        F> || std::is_trivially_destructible_v<F> || (std::is_default_constructible_v<F> && !std::is_aggregate_v<F>);
#else
template <typename> inline constexpr bool isFreedOnce = true;
#endif

} // namespace internal
} // namespace fn
