#include "inspector_web/action_text.h"
#include "base/byte_array.h"
#include "base/exceptions.h"
#include "foundation/io/byte_array_output_stream.h"
#include "foundation/io/memory_input_stream.h"
#include "foundation/mpack/deserializer.h"
#include "foundation/mpack/serializer.h"
#include <algorithm>
#include <cctype>
#include <fmt/format.h>
#include <iterator>

namespace inspector_web {
namespace {

/// Turns a character of Base64 into that of the alphabet which is safe in addresses and file names.
char urlSafe(char character) { return character == '+' ? '-' : character == '/' ? '_' : character; }

char fromUrlSafe(char character) { return character == '-' ? '+' : character == '_' ? '/' : character; }

bool isUrlSafe(char character)
{
    const auto byte = static_cast<unsigned char>(character);
    return (byte < 0x80 && std::isalnum(byte)) || character == '-' || character == '_';
}

} // namespace

std::optional<std::string> actionText(const fn::Value& action)
{
    fn::ByteArray bytes;
    try {
        fn::ByteArrayOutputStream stream(bytes);
        fn::mpack::Serializer(stream).serialize(action);
        stream.flush();
    } catch (const fn::Exception&) {
        return std::nullopt;
    }
    if (bytes.size() > mostActionTextBytes / 4 * 3) return std::nullopt;
    auto text = std::string(bytes.base64().view());
    text.erase(std::ranges::find(text, '='), text.end());
    std::ranges::transform(text, text.begin(), urlSafe);
    return text;
}

std::optional<fn::Value> actionFromText(std::string_view text)
{
    if (text.size() > mostActionTextBytes || text.size() % 4 == 1 || !std::ranges::all_of(text, isUrlSafe))
        return std::nullopt;
    std::string base64;
    std::ranges::transform(text, std::back_inserter(base64), fromUrlSafe);
    base64.append((4 - base64.size() % 4) % 4, '=');
    try {
        fn::MemoryInputStream stream(fn::ByteArray::fromBase64(base64));
        fn::mpack::Deserializer deserializer(stream);
        deserializer.setMaxValues(mostActionValues);
        auto action = deserializer.deserialize();
        if (stream.remaining() != 0) return std::nullopt;
        return action;
    } catch (const fn::Exception&) {
        return std::nullopt;
    }
}

std::string queryText(std::string_view text)
{
    std::string result;
    for (const char character : text) {
        if (isUrlSafe(character)) {
            result += character;
        } else {
            fmt::format_to(std::back_inserter(result), "%{:02X}", static_cast<unsigned char>(character));
        }
    }
    return result;
}

} // namespace inspector_web
