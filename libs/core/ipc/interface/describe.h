#pragma once
#include "core/ipc/interface/arguments.h"
#include "foundation/value.h"

namespace ipc {

template <typename Signature, typename Repetition> class Method;
template <typename... Args> class Event;
template <typename T> class Property;

/// The method that gives the description of each typed service: what its interface declares, as `ipc::describe()` makes it.
inline constexpr std::string_view descriptionMethod = "ipc.describe";

namespace internal {

/// Adds a member to the description of an interface.
FN_EXPORT void addMember(fn::Value& description, const char* kind, const char* name, fn::Value types);

template <typename R> fn::String resultType()
{
    if constexpr (std::is_void_v<R>)
        return "nothing";
    else
        return Codec<R>::type();
}

template <typename R, typename... Args, typename Repetition>
void describeMember(fn::Value& description, const char* name, const Method<R(Args...), Repetition>*)
{
    fn::Value types(fn::Value::ARRAY);
    (types.append(Codec<std::decay_t<Args>>::type()), ...);
    addMember(description, "methods", name, fn::Value::map({ { "arguments", types }, { "result", resultType<R>() } }));
}
template <typename... Args> void describeMember(fn::Value& description, const char* name, const Event<Args...>*)
{
    fn::Value types(fn::Value::ARRAY);
    (types.append(Codec<std::decay_t<Args>>::type()), ...);
    addMember(description, "events", name, types);
}
template <typename T> void describeMember(fn::Value& description, const char* name, const Property<T>*)
{
    addMember(description, "properties", name, Codec<T>::type());
}

} // namespace internal

/// What an interface declares: { "interface": its name, "methods": { name: { "arguments": [type], "result": type } },
/// "events": { name: [type] }, "properties": { name: type } }.
template <typename I> fn::Value describe()
{
    auto description = fn::Value::map({ { "interface", I::sharedName() } });
    I::Members::each([&]<typename M>(M) {
        internal::describeMember(
            description, M::name, static_cast<std::remove_reference_t<decltype(M::in(std::declval<I&>()))>*>(nullptr));
    });
    return description;
}

} // namespace ipc
