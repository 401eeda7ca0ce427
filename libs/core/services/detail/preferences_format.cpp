#include "core/services/detail/preferences_format.h"
#include "base/exceptions.h"
#include "core/services/fraction.h"
#include "core/services/typed_byte_array.h"
#include "foundation/time/date_time_formatter.h"
#include "foundation/time/date_time_parser.h"
#include <algorithm>
#include <cstring>

namespace core::detail {
namespace {

constexpr int base64LineLength = 72;

const fn::String& text(const fn::Value& value)
{
    if (!value.isString())
        throw fn::with(fn::RangeException("Invalid boxed type"), fn::DetailInfo { value.detailInfo() });
    return value.string();
}

fn::Value taggedFraction(const Fraction& fraction)
{
    return fn::Value::map(
        { { "__type__", "fraction" }, { "num", fraction.numerator() }, { "den", fraction.denominator() } });
}

// The text has whole seconds, and the one before this is beyond what a timestamp holds.
constexpr fn::Timestamp earliestSecond(INT64_MIN / 1'000'000 * 1'000'000);

fn::Value taggedTimestamp(fn::Timestamp timestamp)
{
    const auto text = fn::DateTimeFormatter::format(
        std::max(timestamp, earliestSecond), fn::DateTimeFormat::RFC1123_FORMAT, fn::DateTimeFormatter::UTC);
    return fn::Value::map({ { "__type__", "timestamp" }, { "value", text } });
}

fn::Value taggedBuffer(const fn::ByteArray& bytes)
{
    return fn::Value::map({ { "__type__", "buffer" }, { "value", bytes.base64(base64LineLength) } });
}

fn::Value readFraction(const fn::Value& map)
{
    const auto denominator = map.get("den").to<std::int32_t>();
    return Fraction(map.get("num").to<std::int32_t>(), denominator);
}

fn::Value readTimestamp(const fn::Value& map)
{
    const fn::Value missing("");
    int timeZoneDifferential = 0;
    auto date = fn::DateTimeParser::parse(
        text(map.get("value", missing)), fn::DateTimeFormat::RFC1123_FORMAT, timeZoneDifferential);
    date.makeUTC(timeZoneDifferential);
    return date.timestamp();
}

fn::Value readBuffer(const fn::Value& map)
{
    auto bytes = fn::ByteArray::fromBase64(text(map.get("value")));
    const auto& mimeType = map.get("mimeType");
    if (mimeType.empty()) return bytes;
    return TypedByteArray(std::move(bytes), text(mimeType));
}

} // namespace

void OutputTransform::transform(const std::uint8_t* data, std::size_t size, fn::OutputStream& target)
{
    while (size > 0) {
        if (_bytesToDrop > 0) {
            const auto dropped = std::min(_bytesToDrop, size);
            _bytesToDrop -= dropped;
            data += dropped;
            size -= dropped;
            continue;
        }
        const auto* lineFeed = static_cast<const std::uint8_t*>(std::memchr(data, '\n', size));
        const auto length = lineFeed ? static_cast<std::size_t>(lineFeed - data) + 1 : size;
        target.write(data, length);
        if (lineFeed) _bytesToDrop = 1;
        data += length;
        size -= length;
    }
}

bool Serializer::handles(const fn::Value& value)
{
    return value.isBoxed<Fraction>() || value.isBoxed<fn::Timestamp>() || value.isBoxed<fn::ByteArray>()
        || value.isBoxed<TypedByteArray>();
}

fn::Value Serializer::serialize(const fn::Value& value)
{
    if (value.isBoxed<Fraction>()) return taggedFraction(value.boxed<Fraction>());
    if (value.isBoxed<fn::Timestamp>()) return taggedTimestamp(value.boxed<fn::Timestamp>());
    if (value.isBoxed<fn::ByteArray>()) return taggedBuffer(value.boxed<fn::ByteArray>());
    if (value.isBoxed<TypedByteArray>()) {
        const auto& bytes = value.boxed<TypedByteArray>();
        auto map = taggedBuffer(bytes);
        map.set("mimeType", bytes.mimeType());
        return map;
    }
    throw fn::with(fn::DataFormatException("Unsupported value type"), fn::DetailInfo { value.toString() });
}

fn::Value Deserializer::deserialize(fn::Value value)
{
    const auto* tag = value.find("__type__");
    if (!tag) return value;
    const auto& type = text(*tag);
    if (type == "fraction") return readFraction(value);
    if (type == "timestamp") return readTimestamp(value);
    if (type == "buffer") return readBuffer(value);
    throw fn::with(fn::DataFormatException("Unknown value type"), fn::DetailInfo { "Type: " + type });
}

} // namespace core::detail
