#pragma once
#include "base/string.h"
#include "foundation/duration.h"
#include "foundation/logging/category.h"

namespace fn::logging {

/// Tells messages of one category apart, for example by object: a text and a number. Most messages have none.
struct Tag {
    String text; ///< Empty for no tag.
    std::int64_t number = 0; ///< Tells apart what has the same text.
};

/// One log message as the sinks see it.
struct Message {
    using Priority = logging::Priority; ///< 1 to 7: see docs/logging.md.

    int priority = 0; ///< 1 is an error, 7 a trace.
    /// The number of the logging thread: threads are counted in the order of their first messages, modulo 256.
    std::uint8_t thread = 0;
    Tag tag; ///< By which profiles choose; may be empty.
    const char* file = ""; ///< The source that logs.
    int line = 0; ///< Its line.
    const char* function = ""; ///< Its function.
    Duration time; ///< Since 1970-01-01 UTC.
    String text; ///< For people.
    std::uint64_t traceId = 0; ///< The trace of the work that writes it (see WorkContext); 0 for none.

    /// The text behind the trace, "[00000000000004d2] text"; without a trace the text alone. For people, and for `grep`.
    String tracedText() const { return traceId == 0 ? text : "[" + String::numberHex(traceId, 16, '0') + "] " + text; }
};

} // namespace fn::logging
