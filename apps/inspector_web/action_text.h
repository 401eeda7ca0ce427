#pragma once
#include "foundation/value.h"
#include <optional>

namespace inspector_web {

/// Two action texts and a key fit into an address that browsers take, and into a request that HttpConnection takes.
inline constexpr std::size_t mostActionTextBytes = 3000;
inline constexpr std::uint64_t mostActionValues = 1000; ///< Within an action that comes from an address.

/// An inspector's action as a part of an address. Empty for an action that is too large, or holds a value that another process
/// could not read, such as an object.
std::optional<std::string> actionText(const fn::Value& action);

/// The action of such a text, which may come from anywhere; empty if the text holds none.
std::optional<fn::Value> actionFromText(std::string_view text);

/// Any text as a value in the query of an address.
std::string queryText(std::string_view text);

} // namespace inspector_web
