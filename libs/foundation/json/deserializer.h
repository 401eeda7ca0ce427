#pragma once
#include "base/exceptions.h"
#include "foundation/json/hooks.h"
#include <string_view>

namespace fn::json {

/// The value of a JSON text. Of equal keys the last one wins. `hook` is borrowed. `fn::DataFormatException`, with `sourceName`, line
/// and column in its detail, if the text is malformed or nested deeper than `mpack::maxDepth`.
FN_EXPORT Value deserialize(std::string_view text, ValueDeserializer* hook = nullptr, std::string_view sourceName = {});

} // namespace fn::json
