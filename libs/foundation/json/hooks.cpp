#include "foundation/json/hooks.h"

namespace fn::json {

ValueSerializer::~ValueSerializer() = default;
ValueDeserializer::~ValueDeserializer() = default;

} // namespace fn::json
