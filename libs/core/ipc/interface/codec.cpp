#include "core/ipc/interface/codec.h"
#include "base/exceptions.h"

namespace ipc {

void Codec<fn::Value>::read(PayloadReader& reader, fn::Value& value)
{
    value = reader.readValue();
    if (reader.failure()) std::rethrow_exception(reader.failure());
}

void Codec<fn::Timestamp>::write(PayloadWriter& writer, fn::Timestamp value) { writer.serialize(value); }

void Codec<fn::Timestamp>::read(PayloadReader& reader, fn::Timestamp& value)
{
    const auto begin = reader.offset();
    if (const auto read = reader.readValue(); read.isBoxed<fn::Timestamp>()) {
        value = read.boxed<fn::Timestamp>();
    } else {
        reader.setOffset(begin);
        reader.fail("a time stamp");
    }
}

namespace internal {

void failEnumerator(std::string_view type, std::int64_t value)
{
    throw fn::RangeException(fmt::format("{} has no enumerator {}", type, value));
}

void failEnumerator(PayloadReader& reader, std::string_view type, std::string_view names)
{
    reader.fail(fmt::format("a name of {} ({})", type, names));
}

void failCount(PayloadReader& reader, std::size_t count) { reader.fail(fmt::format("an array of {}", count)); }

} // namespace internal
} // namespace ipc
