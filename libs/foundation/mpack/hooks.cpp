#include "foundation/mpack/hooks.h"
#include "base/exceptions.h"
#include <limits>

namespace fn::mpack {
namespace {

class CountingOutputStream final : public OutputStream {
public:
    std::uint64_t count = 0;

private:
    void writeSlow(const void*, std::size_t size) override { count += size; }
};

} // namespace

ValueSerializer::~ValueSerializer() = default;
ValueDeserializer::~ValueDeserializer() = default;

std::uint32_t ValueSerializer::serializedLengthForValue(const Value& value)
{
    CountingOutputStream stream;
    serializeValue(value, stream);
    if (stream.count > std::numeric_limits<std::uint32_t>::max()) {
        throw DataFormatException("Extension value is too long");
    }
    return static_cast<std::uint32_t>(stream.count);
}

} // namespace fn::mpack
