#pragma once
#include "foundation/value.h"
#include <optional>
#include <vector>

namespace core {

/// One line of a page of an inspector.
struct Item {
    fn::String text; ///< What people read.
    fn::Value action; ///< The action of the page that the line leads to; nil if it leads nowhere.
};

/// What an inspector shows for an action: lines, or another action to show instead.
struct FN_EXPORT InspectionResult {
    std::optional<fn::Value> redirectAction; ///< When set, `items` is not used. Nil is an action like any other.
    std::vector<Item> items; ///< In the order of display.

    /// {"redirectAction": action}, or {"items": [text or {"text", "action"}, ...]}.
    fn::Value serialize() const;
    /// Reads a value from any peer and never throws: parts of an unexpected shape count as empty.
    static InspectionResult deserialize(const fn::Value& value);
};

} // namespace core
