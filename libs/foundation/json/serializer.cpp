#include "foundation/json/serializer.h"
#include "base/exceptions.h"
#include "foundation/mpack/hooks.h"
#include "foundation/value_map.h"
#include <algorithm>
#include <cmath>
#include <glib.h>

namespace fn::json {
namespace {

constexpr std::string_view replacement = "\xEF\xBF\xBD"; // U+FFFD

class Writer {
public:
    Writer(OutputStream& stream, bool indented, ValueSerializer* hook)
        : _stream(stream),
          _indented(indented),
          _hook(hook)
    {
    }

    void write(const Value& value, int level)
    {
        switch (value.kind()) {
        case Value::Kind::Nil: _stream.write("null"); break;
        case Value::Kind::Bool:
        case Value::Kind::Int:
        case Value::Kind::UInt: _stream.write(value.toString()); break;
        case Value::Kind::Double: writeDouble(value.toDouble()); break;
        case Value::Kind::String: writeText(value.string()); break;
        case Value::Kind::Array: writeArray(value.elements(), level); break;
        case Value::Kind::Map: writeMap(value.entries(), level); break;
        case Value::Kind::Bytes:
        case Value::Kind::Boxed:
        case Value::Kind::Object: writeStandIn(value, level);
        }
    }

private:
    void writeStandIn(const Value& value, int level)
    {
        if (!_hook || !_hook->handles(value)) throwUnsupported(value);
        const auto standIn = _hook->serialize(value);
        // The stand-in takes the value's place at the same level, where the reader finds it. A stand-in that needed another one
        // could go on for ever.
        if (standIn.kind() == Value::Kind::Bytes || standIn.kind() >= Value::Kind::Boxed) throwUnsupported(standIn);
        write(standIn, level);
    }

    [[noreturn]] static void throwUnsupported(const Value& value)
    {
        throw with(DataFormatException("Unsupported value type"), DetailInfo { value.detailInfo() });
    }

    static void checkLevel(int level)
    {
        if (level < mpack::maxDepth) return;
        throw with(DataFormatException("Value is nested too deeply"),
            DetailInfo { fmt::format("Levels: {}", mpack::maxDepth) });
    }

    void writeArray(const Value::Array& elements, int level)
    {
        checkLevel(level);
        _stream.writeByte('[');
        bool first = true;
        for (const auto& element : elements) {
            beginElement(std::exchange(first, false), level + 1);
            write(element, level + 1);
        }
        if (!first) endLine(level);
        _stream.writeByte(']');
    }

    void writeMap(const ValueMap& entries, int level)
    {
        checkLevel(level);
        _stream.writeByte('{');
        bool first = true;
        for (const auto& [key, value] : entries) {
            if (!key.isString()) {
                throw with(DataFormatException("JSON allows text keys only"), DetailInfo { key.detailInfo() });
            }
            beginElement(std::exchange(first, false), level + 1);
            writeText(key.string());
            _stream.write(_indented ? ": " : ":");
            write(value, level + 1);
        }
        if (!first) endLine(level);
        _stream.writeByte('}');
    }

    void beginElement(bool first, int level)
    {
        if (!first) _stream.writeByte(',');
        endLine(level);
    }

    // Ends the line and indents the next one.
    void endLine(int level)
    {
        if (!_indented) return;
        _stream.write("\r\n");
        for (int i = 0; i < level; ++i) _stream.writeByte('\t');
    }

    void writeDouble(double number)
    {
        if (!std::isfinite(number)) {
            throw with(DataFormatException("JSON has no such number"), DetailInfo { String::number(number) });
        }
        const auto text = String::number(number);
        _stream.write(text);
        // With the fraction, readers take the number for a double.
        if (text.view().find_first_of(".e") == std::string_view::npos) _stream.write(".0");
    }

    void writeText(std::string_view text)
    {
        _stream.writeByte('"');
        while (!text.empty()) {
            const auto isSpecial = [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == '"' || c == '\\'; };
            const auto end = static_cast<std::size_t>(std::ranges::find_if(text, isSpecial) - text.begin());
            writeUTF8(text.substr(0, end));
            if (end == text.size()) break;
            writeEscaped(text[end]);
            text.remove_prefix(end + 1);
        }
        _stream.writeByte('"');
    }

    void writeUTF8(std::string_view text)
    {
        while (!text.empty()) {
            const char* end = nullptr;
            const bool isValid = g_utf8_validate_len(text.data(), text.size(), &end);
            _stream.write(text.substr(0, static_cast<std::size_t>(end - text.data())));
            if (isValid) break;
            _stream.write(replacement);
            text.remove_prefix(static_cast<std::size_t>(end - text.data()) + 1);
        }
    }

    void writeEscaped(char c)
    {
        switch (c) {
        case '"': _stream.write("\\\""); break;
        case '\\': _stream.write("\\\\"); break;
        case '\n': _stream.write("\\n"); break;
        case '\r': _stream.write("\\r"); break;
        case '\t': _stream.write("\\t"); break;
        default: _stream.write("\\u" + String::numberHex(static_cast<unsigned char>(c), 4, '0'));
        }
    }

    OutputStream& _stream;
    const bool _indented;
    ValueSerializer* const _hook;
};

} // namespace

void serialize(const Value& value, OutputStream& stream, bool indented, ValueSerializer* hook)
{
    Writer(stream, indented, hook).write(value, 0);
}

} // namespace fn::json
