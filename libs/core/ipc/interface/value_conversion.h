#pragma once
#include "core/ipc/interface/codec.h"
#include "core/ipc/interface/codec_containers.h"

/// Values of C++ types as `fn::Value`s, and back: for parameters, settings, and untyped calls.
namespace ipc {
namespace internal {

FN_EXPORT fn::Value decodeValue(PayloadSource source);
FN_EXPORT void encodeValue(const fn::Value& value, const fn::String& what, fn::FunctionRef<void(PayloadReader&)> read);

} // namespace internal

/// A value as it travels: a structure with FN_FIELDS is a map of its fields (docs/interfaces.md has the table of all types). Throws what can
/// not travel, which objects can not either here.
template <typename T> fn::Value toValue(const T& value)
{
    return internal::decodeValue([&](PayloadWriter& writer) { Codec<T>::write(writer, value); });
}

/// The opposite. What is no T is a `fn::DataFormatException` that begins with `what` and names the field: "Watch, field folder: expected
/// a text, got 3".
template <typename T> T fromValue(const fn::Value& value, const fn::String& what = {})
{
    fn::String name = what;
    if constexpr (fn::HasFields<T>) {
        if (name.empty()) name = fnTypeName(static_cast<const T*>(nullptr));
    }
    T result {};
    internal::encodeValue(
        value, name.empty() ? Codec<T>::type() : name, [&](PayloadReader& reader) { Codec<T>::read(reader, result); });
    return result;
}

} // namespace ipc
