#pragma once
#include "base/exceptions.h"
#include "foundation/io/output_stream.h"
#include "foundation/json/hooks.h"

namespace fn::json {

/// Writes a value as JSON text in UTF-8; bytes that are not UTF-8 become U+FFFD. Maps keep their key order. `indented` gives
/// each element a line, ended by CRLF and indented by a tab for each level, with no line end behind the last brace; an empty
/// container is `{}` or `[]`. `hook` is borrowed. Values without a JSON form are an `fn::DataFormatException`: NaN, infinities,
/// keys that are not text, values that no hook takes ("Unsupported value type"), containers deeper than `mpack::maxDepth`. The
/// stream then holds a part of the text.
FN_EXPORT void serialize(
    const Value& value, OutputStream& stream, bool indented = false, ValueSerializer* hook = nullptr);

} // namespace fn::json
