#include "foundation/json/deserializer.h"
#include "base/exceptions.h"
#include "foundation/mpack/hooks.h"
#include "foundation/value_map.h"
#include <algorithm>
#include <nlohmann/json.hpp>
#include <vector>

namespace fn::json {
namespace {

using Parser = nlohmann::json;

constexpr std::size_t mostReasonBytes = 160; // The parser's message may quote the input at any length.

/// Builds values from the parser's events. The parser calls the public member functions; returning false would stop it.
class Builder {
public:
    using number_integer_t = Parser::number_integer_t;
    using number_unsigned_t = Parser::number_unsigned_t;
    using number_float_t = Parser::number_float_t;
    using string_t = Parser::string_t;
    using binary_t = Parser::binary_t;

    Builder(std::string_view text, ValueDeserializer* hook, std::string_view sourceName)
        : _text(text),
          _hook(hook),
          _sourceName(sourceName)
    {
    }

    Value take()
    {
        // The parser takes a NUL byte for the end of the text, but JSON allows none.
        if (const auto nul = _text.find('\0'); nul != std::string_view::npos)
            throwMalformed("NUL byte behind the value", nul + 1);
        return std::move(_result);
    }

    bool null() { return add({}); }
    bool boolean(bool value) { return add(value); }
    bool number_integer(number_integer_t value) { return add(value); }
    bool number_unsigned(number_unsigned_t value) { return add(value); }
    bool number_float(number_float_t value, const string_t&) { return add(value); }
    bool string(string_t& value) { return add(value); }
    bool binary(binary_t&) { return false; } // JSON text has no such values.

    bool start_object(std::size_t) { return open(Value::MAP); }
    bool start_array(std::size_t) { return open(Value::ARRAY); }
    bool key(string_t& value)
    {
        _open.back().key = value;
        return true;
    }

    bool end_object()
    {
        auto map = close();
        return add(_hook ? _hook->deserialize(std::move(map)) : std::move(map));
    }
    bool end_array() { return add(close()); }

    bool parse_error(std::size_t position, const std::string&, const Parser::exception& error)
    {
        // The parser's message begins with the name of its exception and the place, which the detail tells in another form.
        std::string_view reason = error.what();
        if (const auto end = reason.rfind("syntax error"); end != std::string_view::npos)
            reason.remove_prefix(end);
        else
            reason.remove_prefix(std::min(reason.find(' ') + 1, reason.size()));
        throwMalformed(reason.substr(0, mostReasonBytes), position);
    }

private:
    struct Container {
        Value value;
        Value key; // In a map, the key of the entry being read.
    };

    bool open(Value::Type type)
    {
        if (_open.size() >= mpack::maxDepth) {
            throw with(DataFormatException("Malformed JSON"), DetailInfo { place() + "nested too deeply" });
        }
        _open.push_back({ type, {} });
        return true;
    }

    Value close()
    {
        auto value = std::move(_open.back().value);
        _open.pop_back();
        return value;
    }

    bool add(Value value)
    {
        if (_open.empty())
            _result = std::move(value);
        else if (auto& container = _open.back(); container.value.isArray())
            container.value.append(std::move(value));
        else
            container.value.mutableEntries().set(std::exchange(container.key, {}), std::move(value));
        return true;
    }

    std::string place() const { return _sourceName.empty() ? std::string() : fmt::format("{}: ", _sourceName); }

    [[noreturn]] void throwMalformed(std::string_view reason, std::size_t position) const
    {
        // `position` counts the bytes read, including the offending byte.
        const auto before = _text.substr(0, position > 0 ? position - 1 : 0);
        const auto line = 1 + std::ranges::count(before, '\n');
        const auto lineStart = before.rfind('\n') + 1; // npos + 1 is 0.
        throw with(DataFormatException("Malformed JSON"),
            DetailInfo {
                fmt::format("{}line {}, column {}: {}", place(), line, before.size() - lineStart + 1, reason) });
    }

    const std::string_view _text;
    ValueDeserializer* const _hook;
    const std::string_view _sourceName;
    std::vector<Container> _open;
    Value _result;
};

} // namespace

Value deserialize(std::string_view text, ValueDeserializer* hook, std::string_view sourceName)
{
    Builder builder(text, hook, sourceName);
    Parser::sax_parse(text, &builder);
    return builder.take();
}

} // namespace fn::json
