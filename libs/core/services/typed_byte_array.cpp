#include "core/services/typed_byte_array.h"
#include "core/services/detail/stream_form.h"
#include "foundation/mpack/serializer.h"

namespace core {

fn::String TypedByteArray::toString() const
{
    auto bytes = fn::ByteArray::toString();
    return _mimeType.empty() ? bytes : _mimeType + " " + bytes;
}

void TypedByteArray::serialize(fn::OutputStream& stream) const
{
    fn::mpack::Serializer serializer(stream);
    serializer.serialize(_mimeType);
    serializer.serialize(static_cast<const fn::ByteArray&>(*this));
}

TypedByteArray TypedByteArray::deserialize(fn::InputStream& stream)
{
    fn::mpack::Deserializer deserializer(stream);
    const auto mimeType = detail::nextField(deserializer, "mimeType").asString();
    const auto bytes = detail::nextField(deserializer, "bytes");
    return { bytes.byteArray(), mimeType };
}

} // namespace core
