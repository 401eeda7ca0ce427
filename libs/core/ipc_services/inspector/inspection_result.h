#pragma once
#include "core/ipc_services/inspector/item.h"
#include <optional>
#include <vector>

namespace core {

/// What an inspector shows for an action: lines, or another action to show instead.
struct FN_EXPORT InspectionResult {
    std::optional<fn::Value> redirectAction; ///< When set, the lines are not used. Nil is an action as any other.
    std::vector<Item> items; ///< In the order of display.

    /// {"redirectAction": action}, or {"items": [text or {"text", "action"}, ...]}.
    fn::Value serialize() const;
    /// Reads what a stranger may have sent, and throws for nothing: what has an unexpected shape counts as empty.
    static InspectionResult deserialize(const fn::Value& value);
};

} // namespace core
