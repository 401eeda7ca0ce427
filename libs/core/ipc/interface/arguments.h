#pragma once
#include "core/ipc/interface/codec_containers.h"
#include <tuple>

/// How the arguments of a call or an event travel: none as nil, one as itself, several as an array.
namespace ipc::internal {

template <typename... Args> struct Arguments {
    static void write(PayloadWriter& writer, const Args&... args)
    {
        if constexpr (sizeof...(Args) == 0) {
            writer.writeNil();
        } else if constexpr (sizeof...(Args) == 1) {
            (Codec<Args>::write(writer, args), ...);
        } else {
            writer.beginArray(sizeof...(Args));
            (Codec<Args>::write(writer, args), ...);
            writer.end();
        }
    }

    /// Reads them, and finishes the reader.
    static void read(PayloadReader& reader, std::tuple<Args...>& args)
    {
        if constexpr (sizeof...(Args) == 1)
            Codec<Args...>::read(reader, std::get<0>(args));
        else if constexpr (sizeof...(Args) > 1)
            TupleCodec<std::tuple<Args...>, Args...>::read(reader, args);
        reader.finish();
    }

    static fn::String types()
    {
        fn::String text;
        ((text = text + (text.empty() ? "" : ", ") + Codec<Args>::type()), ...);
        return text;
    }
};

/// What C++ converts, but for a number that would lose its fraction.
template <typename From, typename To>
inline constexpr bool isArgument =
    std::is_convertible_v<From, To> && !(std::is_floating_point_v<std::remove_cvref_t<From>> && std::is_integral_v<To>);

/// The number of the first of A, from 1, that is no argument for its place in `To`; 0 if all are. One more than there are, for too few.
template <typename To, typename... A> struct WrongArgument;
template <typename... Args, typename... A> struct WrongArgument<std::tuple<Args...>, A...> {
    static consteval int find()
    {
        constexpr std::size_t common = sizeof...(Args) < sizeof...(A) ? sizeof...(Args) : sizeof...(A);
        const int wrong = findIn(std::make_index_sequence<common>());
        if (wrong != 0) return wrong;
        return sizeof...(Args) == sizeof...(A) ? 0 : static_cast<int>(common) + 1;
    }

private:
    template <std::size_t... indices> static consteval int findIn(std::index_sequence<indices...>)
    {
        int wrong = 0;
        (void)((isArgument<std::tuple_element_t<indices, std::tuple<A...>>,
                    std::tuple_element_t<indices,
                        std::tuple<Args...>>> || (wrong = static_cast<int>(indices) + 1, false))
            && ...);
        return wrong;
    }
};

/// GCC 12 frees a temporary of aggregate type twice in an expression with co_await: such an argument is to be named first.
template <typename T> consteval bool mustBeNamed()
{
#if defined(__GNUC__) && !defined(__clang__) && __GNUC__ < 13
    return !std::is_lvalue_reference_v<
               T> && std::is_aggregate_v<std::remove_cvref_t<T>> && !std::is_trivially_destructible_v<std::remove_cvref_t<T>>;
#else
    return false;
#endif
}

} // namespace ipc::internal
