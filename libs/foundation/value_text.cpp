#include "base/utf8.h"
#include "foundation/value.h"
#include "foundation/value_map.h"
#include <fmt/format.h>
#include <iterator>
#include <ostream>
#include <string>

namespace fn {
namespace {

// Bounds on the text of a value: it goes into logs and error details, and the value may come from any sender.
constexpr std::size_t mostBytesShown = 256; // Of one text or byte value.
constexpr std::size_t mostElementsShown = 1000; // Of all containers of the value together.
constexpr int mostLevelsShown = 64;
constexpr std::size_t mostDetailBytes = 256;
constexpr std::string_view dots = "...";

class TextWriter {
public:
    void write(const Value& value, int level)
    {
        switch (value.kind()) {
        case Value::Kind::String: writeQuoted(value.string().view()); break;
        case Value::Kind::Bytes: {
            const auto& bytes = value.byteArray();
            _text += bytes.slice(0, mostBytesShown).hex();
            if (bytes.size() > mostBytesShown) _text += dots;
            break;
        }
        case Value::Kind::Array: writeArray(value, level); break;
        case Value::Kind::Map: writeMap(value, level); break;
        default: {
            const auto text = value.toString();
            _text += cutText(text, 2 * mostBytesShown); // As much as the hex digits of a byte value.
            if (text.size() > 2 * mostBytesShown) _text += dots;
        }
        }
    }

    std::string take() { return std::move(_text); }

private:
    // Writes the text in front of an element, and returns whether the element is shown. None is below the deepest level shown.
    bool beginElement(bool first, int level)
    {
        if (!first) _text += ", ";
        if (level < mostLevelsShown && _elements++ < mostElementsShown) return true;
        _text += dots;
        return false;
    }

    void writeArray(const Value& value, int level)
    {
        _text += '[';
        bool first = true;
        for (const auto& element : value.elements()) {
            if (!beginElement(std::exchange(first, false), level)) break;
            write(element, level + 1);
        }
        _text += ']';
    }

    void writeMap(const Value& value, int level)
    {
        _text += '{';
        bool first = true;
        for (const auto& [key, entry] : value.entries()) {
            if (!beginElement(std::exchange(first, false), level)) break;
            write(key, level + 1);
            _text += ": ";
            write(entry, level + 1);
        }
        _text += '}';
    }

    void writeQuoted(std::string_view text)
    {
        const auto shown = cutText(text, mostBytesShown);
        _text += '"';
        for (const char c : shown) {
            switch (c) {
            case '"': _text += "\\\""; break;
            case '\\': _text += "\\\\"; break;
            case '\n': _text += "\\n"; break;
            case '\r': _text += "\\r"; break;
            case '\t': _text += "\\t"; break;
            default:
                if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) {
                    fmt::format_to(std::back_inserter(_text), "\\x{:02x}", static_cast<unsigned>(c));
                } else {
                    _text += c;
                }
            }
        }
        _text += '"';
        if (shown.size() < text.size()) _text += dots;
    }

    std::string _text;
    std::size_t _elements = 0;
};

const char* kindName(Value::Kind kind)
{
    switch (kind) {
    case Value::Kind::Nil: return "nil";
    case Value::Kind::Bool: return "boolean";
    case Value::Kind::Int:
    case Value::Kind::UInt: return "integer";
    case Value::Kind::Double: return "double";
    case Value::Kind::String: return "string";
    case Value::Kind::Bytes: return "bytes";
    case Value::Kind::Array: return "array";
    case Value::Kind::Map: return "map";
    case Value::Kind::Boxed: return "boxed";
    case Value::Kind::Object: return "object";
    }
    return "unknown";
}

} // namespace

fn::String Value::toString() const
{
    switch (_kind) {
    case Kind::Nil: return "nil";
    case Kind::Bool: return _data.boolean ? "true" : "false";
    case Kind::Int: return fn::String::number(_data.integer);
    case Kind::UInt: return fn::String::number(_data.unsignedInteger);
    case Kind::Double: return fn::String::number(_data.real);
    case Kind::String: return _data.string;
    case Kind::Bytes: return _data.bytes.hex();
    case Kind::Boxed: return box().toString();
    case Kind::Object: return _data.object.object->toString();
    case Kind::Array:
    case Kind::Map: break;
    }
    TextWriter writer;
    writer.write(*this, 0);
    return writer.take();
}

std::ostream& operator<<(std::ostream& stream, const Value& value) { return stream << value.toString(); }

fn::String Value::detailInfo() const
{
    if (isNil()) return "nil";
    TextWriter writer;
    writer.write(*this, 0);
    const auto text = writer.take();
    const auto shown = cutText(text, mostDetailBytes);
    return fmt::format("{} {}{}", kindName(_kind), shown, shown.size() < text.size() ? dots : "");
}

} // namespace fn
