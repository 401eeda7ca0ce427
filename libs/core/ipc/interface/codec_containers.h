#pragma once
#include "core/ipc/interface/codec.h"
#include <algorithm>
#include <array>
#include <map>
#include <optional>
#include <set>
#include <tuple>
#include <utility>
#include <variant>
#include <vector>

namespace ipc {

/// Nil, or the value.
template <typename T> struct Codec<std::optional<T>> {
    static void write(PayloadWriter& writer, const std::optional<T>& value)
    {
        if (value)
            Codec<T>::write(writer, *value);
        else
            writer.writeNil();
    }
    static void read(PayloadReader& reader, std::optional<T>& value)
    {
        value.reset();
        if (!reader.takeNil()) Codec<T>::read(reader, value.emplace());
    }
    static fn::String type() { return "optional<" + Codec<T>::type() + ">"; }
};

namespace internal {

// Most elements that memory is reserved for: a container may lie about its size, and grows beyond this as elements come.
inline constexpr std::size_t mostElementsReserved = 256;

/// An array: what lists and sets have in common.
template <typename Container, typename T> struct ElementsCodec {
    static void write(PayloadWriter& writer, const Container& elements)
    {
        writer.beginArray(elements.size());
        for (const auto& element : elements) Codec<T>::write(writer, element);
        writer.end();
    }
    static void read(PayloadReader& reader, Container& elements)
    {
        elements.clear();
        auto count = reader.beginArray();
        if constexpr (requires { elements.reserve(count); })
            elements.reserve(std::min<std::size_t>(count, mostElementsReserved));
        for (; count > 0; --count) {
            reader.charge(sizeof(T));
            T element {};
            Codec<T>::read(reader, element);
            elements.insert(elements.end(), std::move(element));
        }
        reader.end();
    }
    static fn::String type() { return "list<" + Codec<T>::type() + ">"; }
};

template <typename Container, typename K, typename T> struct EntriesCodec {
    static void write(PayloadWriter& writer, const Container& entries)
    {
        writer.beginMap(entries.size());
        for (const auto& [key, value] : entries) {
            Codec<K>::write(writer, key);
            Codec<T>::write(writer, value);
        }
        writer.end();
    }
    static void read(PayloadReader& reader, Container& entries)
    {
        entries.clear();
        for (auto count = reader.beginMap(); count > 0; --count) {
            reader.charge(sizeof(K) + sizeof(T));
            K key {};
            Codec<K>::read(reader, key);
            T value {};
            Codec<T>::read(reader, value);
            entries.insert_or_assign(std::move(key), std::move(value));
        }
        reader.end();
    }
    static fn::String type() { return "map<" + Codec<K>::type() + ", " + Codec<T>::type() + ">"; }
};

/// An array of a known length: what arrays, pairs and tuples have in common.
template <typename Tuple, typename... Ts> struct TupleCodec {
    static void write(PayloadWriter& writer, const Tuple& elements)
    {
        writer.beginArray(sizeof...(Ts));
        std::apply([&](const Ts&... each) { (Codec<Ts>::write(writer, each), ...); }, elements);
        writer.end();
    }
    static void read(PayloadReader& reader, Tuple& elements)
    {
        const auto begin = reader.offset();
        if (reader.beginArray() != sizeof...(Ts)) {
            reader.setOffset(begin);
            failCount(reader, sizeof...(Ts));
        }
        std::apply([&](Ts&... each) { (Codec<Ts>::read(reader, each), ...); }, elements);
        reader.end();
    }
    static fn::String type()
    {
        fn::String text;
        ((text = text + (text.empty() ? "" : ", ") + Codec<Ts>::type()), ...);
        return "tuple<" + text + ">";
    }
};

} // namespace internal

template <typename T> struct Codec<std::vector<T>> : internal::ElementsCodec<std::vector<T>, T> {
};
template <typename T> struct Codec<std::set<T>> : internal::ElementsCodec<std::set<T>, T> {
};
template <typename K, typename T> struct Codec<std::map<K, T>> : internal::EntriesCodec<std::map<K, T>, K, T> {
};
// No maps and sets that hash: a peer could choose keys that all fall on one place.
template <typename A, typename B> struct Codec<std::pair<A, B>> : internal::TupleCodec<std::pair<A, B>, A, B> {
};
template <typename... Ts> struct Codec<std::tuple<Ts...>> : internal::TupleCodec<std::tuple<Ts...>, Ts...> {
};

template <typename T, std::size_t count> struct Codec<std::array<T, count>> {
    static void write(PayloadWriter& writer, const std::array<T, count>& elements)
    {
        writer.beginArray(count);
        for (const auto& element : elements) Codec<T>::write(writer, element);
        writer.end();
    }
    static void read(PayloadReader& reader, std::array<T, count>& elements)
    {
        const auto begin = reader.offset();
        if (reader.beginArray() != count) {
            reader.setOffset(begin);
            internal::failCount(reader, count);
        }
        for (auto& element : elements) Codec<T>::read(reader, element);
        reader.end();
    }
    static fn::String type() { return "list<" + Codec<T>::type() + ">"; }
};

/// An array of two: the number of the alternative, from 0, and its value.
template <typename... Ts> struct Codec<std::variant<Ts...>> {
    static void write(PayloadWriter& writer, const std::variant<Ts...>& value)
    {
        writer.beginArray(2);
        writer.writeInteger(value.index());
        std::visit([&]<typename T>(const T& alternative) { Codec<T>::write(writer, alternative); }, value);
        writer.end();
    }
    static void read(PayloadReader& reader, std::variant<Ts...>& value)
    {
        const auto begin = reader.offset();
        const auto index = reader.beginArray() == 2 ? reader.readInteger<std::uint32_t>() : sizeof...(Ts);
        if (index >= sizeof...(Ts)) {
            reader.setOffset(begin);
            reader.fail("a variant: an alternative's number and its value");
        }
        readAlternative(reader, value, index, std::index_sequence_for<Ts...>());
        reader.end();
    }
    static fn::String type()
    {
        fn::String text;
        ((text = text + (text.empty() ? "" : ", ") + Codec<Ts>::type()), ...);
        return "variant<" + text + ">";
    }

private:
    template <std::size_t... indices>
    static void readAlternative(
        PayloadReader& reader, std::variant<Ts...>& value, std::size_t index, std::index_sequence<indices...>)
    {
        (void)((index == indices && (Codec<Ts>::read(reader, value.template emplace<indices>()), true)) || ...);
    }
};
template <> struct Codec<std::monostate> {
    static void write(PayloadWriter& writer, std::monostate) { writer.writeNil(); }
    static void read(PayloadReader& reader, std::monostate&) { reader.skip(); }
    static fn::String type() { return "nothing"; }
};

} // namespace ipc
