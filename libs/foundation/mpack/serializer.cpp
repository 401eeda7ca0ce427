#include "foundation/mpack/serializer.h"
#include "base/exceptions.h"
#include "foundation/mpack/detail/timestamp_form_private.h"
#include "foundation/value_map.h"

namespace fn::mpack {

void Serializer::serializeMap(std::span<const Field> fields)
{
    beginMap(fields.size());
    for (const auto& [key, value] : fields) {
        writeText(key);
        serialize(value);
    }
    end();
}

void Serializer::serialize(const Value& value)
{
    switch (value.kind()) {
    case Value::Kind::Nil: writeNil(); break;
    case Value::Kind::Bool: writeBool(value.toBool()); break;
    case Value::Kind::Int: writeInteger(value.to<std::int64_t>()); break;
    case Value::Kind::UInt: writeInteger(value.to<std::uint64_t>()); break;
    case Value::Kind::Double: writeDouble(value.toDouble()); break;
    case Value::Kind::String: writeText(value.string()); break;
    case Value::Kind::Bytes: writeBytes(value.byteArray()); break;
    case Value::Kind::Array:
        beginArray(value.size());
        for (const auto& element : value.elements()) serialize(element);
        end();
        break;
    case Value::Kind::Map:
        beginMap(value.size());
        for (const auto& [key, entry] : value.entries()) {
            serialize(key);
            serialize(entry);
        }
        end();
        break;
    case Value::Kind::Boxed:
    case Value::Kind::Object: writeExtension(value); break;
    }
}

void Serializer::writeExtension(const Value& value)
{
    if (const auto type = _hook ? _hook->typeForValue(value) : plainType; type == typeNil) {
        writeNil();
    } else if (type != plainType) {
        beginExtension(type, _hook->serializedLengthForValue(value));
        _hook->serializeValue(value, stream());
    } else if (value.isBoxed<Timestamp>()) {
        const auto timestamp = value.boxed<Timestamp>();
        beginExtension(timestampType, timestampBytes(timestamp));
        writeTimestamp(timestamp, stream());
    } else {
        throw with(DataFormatException("Unsupported value type"), DetailInfo { value.detailInfo() });
    }
}

} // namespace fn::mpack
