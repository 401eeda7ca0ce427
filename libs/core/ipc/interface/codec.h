#pragma once
#include "base/byte_array.h"
#include "base/string.h"
#include "core/ipc/object/payload_reader.h"
#include "core/ipc/object/payload_writer.h"
#include "foundation/duration.h"
#include "foundation/fields.h"
#include "foundation/time/timestamp.h"
#include <chrono>
#include <concepts>
#include <string>

/// How C++ types travel. docs/interfaces.md has the table of all of them.
namespace ipc {

/// How a T is written, read, and named in descriptions. A type of one's own joins by a specialisation:
/// - `static void write(PayloadWriter&, const T&)` writes one value;
/// - `static void read(PayloadReader&, T&)` reads one into a T; what does not fit is told by `reader.fail("what was expected")`;
/// - `static fn::String type()` names the type.
template <typename T> struct Codec {
    static_assert(sizeof(T) == 0,
        "this type does not travel: FN_FIELDS or FN_ENUM name its parts, or it has an ipc::Codec of its own");
};

template <std::same_as<bool> T> struct Codec<T> {
    static void write(PayloadWriter& writer, bool value) { writer.writeBool(value); }
    static void read(PayloadReader& reader, bool& value) { value = reader.readBool(); }
    static fn::String type() { return "bool"; }
};

template <fn::internal::Integral T> struct Codec<T> {
    static void write(PayloadWriter& writer, T value) { writer.writeInteger(value); }
    static void read(PayloadReader& reader, T& value) { value = reader.readInteger<T>(); }
    static fn::String type()
    {
        return (std::is_signed_v<T> ? "int" : "uint") + fn::String::number(std::int64_t(sizeof(T) * 8));
    }
};

template <std::floating_point T> struct Codec<T> {
    static void write(PayloadWriter& writer, T value) { writer.writeDouble(static_cast<double>(value)); }
    static void read(PayloadReader& reader, T& value) { value = static_cast<T>(reader.readDouble()); }
    static fn::String type() { return sizeof(T) == 4 ? "float" : "double"; }
};

template <> struct Codec<fn::String> {
    static void write(PayloadWriter& writer, const fn::String& value) { writer.writeText(value); }
    static void read(PayloadReader& reader, fn::String& value) { value = reader.readText(); }
    static fn::String type() { return "text"; }
};

template <> struct Codec<std::string> {
    static void write(PayloadWriter& writer, const std::string& value) { writer.writeText(value); }
    static void read(PayloadReader& reader, std::string& value) { value = reader.readText(); }
    static fn::String type() { return "text"; }
};

template <> struct Codec<fn::ByteArray> {
    static void write(PayloadWriter& writer, const fn::ByteArray& value) { writer.writeBytes(value); }
    static void read(PayloadReader& reader, fn::ByteArray& value) { value = reader.readBytes(); }
    static fn::String type() { return "bytes"; }
};

template <> struct FN_EXPORT Codec<fn::Value> {
    static void write(PayloadWriter& writer, const fn::Value& value) { writer.serialize(value); }
    static void read(PayloadReader& reader, fn::Value& value);
    static fn::String type() { return "value"; }
};

/// Whole microseconds.
template <> struct Codec<fn::Duration> {
    static void write(PayloadWriter& writer, fn::Duration value) { writer.writeInteger(value.totalMicroseconds()); }
    static void read(PayloadReader& reader, fn::Duration& value)
    {
        value = fn::Duration(reader.readInteger<std::int64_t>());
    }
    static fn::String type() { return "duration"; }
};

/// Whole microseconds; what is finer is cut off. One that does not fit is no such value.
template <typename Rep, typename Period> struct Codec<std::chrono::duration<Rep, Period>> {
    using Duration = std::chrono::duration<Rep, Period>;
    static void write(PayloadWriter& writer, Duration value)
    {
        writer.writeInteger(fn::Duration(value).totalMicroseconds());
    }
    static void read(PayloadReader& reader, Duration& value)
    {
        const auto begin = reader.offset();
        const fn::Duration read(reader.readInteger<std::int64_t>());
        if (const auto converted = read.to<Duration>()) return void(value = *converted);
        reader.setOffset(begin);
        reader.fail("a shorter duration");
    }
    static fn::String type() { return "duration"; }
};

template <> struct FN_EXPORT Codec<fn::Timestamp> {
    static void write(PayloadWriter& writer, fn::Timestamp value);
    static void read(PayloadReader& reader, fn::Timestamp& value);
    static fn::String type() { return "timestamp"; }
};

template <> struct Codec<std::chrono::system_clock::time_point> {
    using Point = std::chrono::system_clock::time_point;
    static void write(PayloadWriter& writer, Point value)
    {
        Codec<fn::Timestamp>::write(writer, fn::Timestamp(fn::Duration(value.time_since_epoch())));
    }
    static void read(PayloadReader& reader, Point& value)
    {
        const auto begin = reader.offset();
        fn::Timestamp stamp;
        Codec<fn::Timestamp>::read(reader, stamp);
        if (const auto since = stamp.sinceEpoch().to<Point::duration>()) return void(value = Point(*since));
        reader.setOffset(begin);
        reader.fail("a time that is nearer");
    }
    static fn::String type() { return "timestamp"; }
};

namespace internal {

/// What is wrong with an enumerator that has no name, or a name that is none.
[[noreturn]] FN_EXPORT void failEnumerator(std::string_view type, std::int64_t value);
[[noreturn]] FN_EXPORT void failEnumerator(PayloadReader& reader, std::string_view type, std::string_view names);

/// Says that an array of `count` elements was expected.
[[noreturn]] FN_EXPORT void failCount(PayloadReader& reader, std::size_t count);

/// Reads the entries of a map into the fields that they name, in whatever order they come.
class FieldReader {
public:
    explicit FieldReader(PayloadReader& reader) : _reader(reader), _left(reader.beginMap()) { }

    /// The fields in the order in which they are written: each is the next entry, if it is there.
    template <std::size_t size, typename T> void operator()(const char (&name)[size], T& field)
    {
        if (_left == 0 || !_reader.takeText({ name, size - 1 })) return;
        --_left;
        Codec<T>::read(_reader, field);
    }

    /// The entries that came otherwise. Unknown ones are passed over.
    template <typename Object> void readRest(Object& object)
    {
        for (; _left > 0; --_left) {
            if (!_reader.nextIsText()) {
                _reader.skip();
                _reader.skip();
                continue;
            }
            const auto key = _reader.readText();
            bool isKnown = false;
            fnVisitFields(object, [&]<typename T>(std::string_view name, T& field) {
                if (isKnown || name != key) return;
                isKnown = true;
                Codec<T>::read(_reader, field);
            });
            if (!isKnown) _reader.skip();
        }
        _reader.end();
    }

private:
    PayloadReader& _reader;
    std::uint32_t _left;
};

/// "Box { width: uint32; height: uint32; }"; inside of itself "Box".
template <typename T> fn::String typeOfFields(const char* begin, const char* end)
{
    static thread_local bool isInside = false;
    fn::String text = fnTypeName(static_cast<const T*>(nullptr));
    if (isInside) return text;
    isInside = true;
    text = text + begin;
    const T value {};
    fnVisitFields(value, [&]<typename Field>(std::string_view name, const Field&) {
        text = text + " " + fn::String(name) + ": " + Codec<Field>::type() + ";";
    });
    isInside = false;
    return text + end;
}

} // namespace internal

/// A map of the fields. Unknown entries are passed over, and fields that are missing keep what they hold.
template <fn::HasFields T> struct Codec<T> {
    static void write(PayloadWriter& writer, const T& value)
    {
        writer.beginMap(fnFieldCount(static_cast<const T*>(nullptr)));
        fnVisitFields(value, [&]<std::size_t size, typename Field>(const char(&name)[size], const Field& field) {
            writer.writeName(name);
            Codec<Field>::write(writer, field);
        });
        writer.end();
    }
    static void read(PayloadReader& reader, T& value)
    {
        internal::FieldReader fields(reader);
        fnVisitFields(value, fields);
        fields.readRest(value);
    }
    static fn::String type() { return internal::typeOfFields<T>(" {", " }"); }
};

/// An array of the fields in their order, without names, for structures that are sent by the thousand:
/// `template <> struct ipc::Codec<Point> : ipc::ArrayOfFields<Point> { };`
///
/// Elements behind the last field are passed over, and fields that are missing at the end keep what they hold.
template <fn::HasFields T> struct ArrayOfFields {
    /// As a Codec's.
    static void write(PayloadWriter& writer, const T& value)
    {
        writer.beginArray(fnFieldCount(static_cast<const T*>(nullptr)));
        fnVisitFields(
            value, [&]<typename Field>(std::string_view, const Field& field) { Codec<Field>::write(writer, field); });
        writer.end();
    }
    /// As a Codec's.
    static void read(PayloadReader& reader, T& value)
    {
        auto left = reader.beginArray();
        fnVisitFields(value, [&]<typename Field>(std::string_view, Field& field) {
            if (left == 0) return;
            --left;
            Codec<Field>::read(reader, field);
        });
        for (; left > 0; --left) reader.skip();
        reader.end();
    }
    static fn::String type() { return internal::typeOfFields<T>(" [", " ]"); } ///< As a Codec's.
};

/// The name of the enumerator.
template <fn::HasEnumerators T> struct Codec<T> {
    static void write(PayloadWriter& writer, T value)
    {
        for (const auto& enumerator : all()) {
            if (enumerator.value == value) return writer.writeText(enumerator.name);
        }
        internal::failEnumerator(fnTypeName(static_cast<const T*>(nullptr)), static_cast<std::int64_t>(value));
    }
    static void read(PayloadReader& reader, T& value)
    {
        for (const auto& enumerator : all()) {
            if (reader.takeText(enumerator.name)) return void(value = enumerator.value);
        }
        internal::failEnumerator(reader, fnTypeName(static_cast<const T*>(nullptr)), names());
    }
    static fn::String type() { return fn::String(fnTypeName(static_cast<const T*>(nullptr))) + " { " + names() + " }"; }

private:
    static auto all() { return fnEnumerators(static_cast<const T*>(nullptr)); }
    static fn::String names()
    {
        fn::String text;
        for (const auto& enumerator : all()) text = text + (text.empty() ? "" : " | ") + fn::String(enumerator.name);
        return text;
    }
};

} // namespace ipc
