#pragma once
#include "foundation/value.h"
#include <optional>

namespace inspector_web {

/// Two of them and a key fit what browsers take as an address, and HttpConnection as a request.
inline constexpr std::size_t mostActionTextBytes = 3000;
inline constexpr std::uint64_t mostActionValues = 1000; ///< Within an action that comes from an address.

/// An inspector's action as a part of an address. Empty for one that does not fit, or that holds what another process
/// could not read: an object, say.
std::optional<std::string> actionText(const fn::Value& action);

/// The action behind such a text, which may come from anywhere; empty where there is none.
std::optional<fn::Value> actionFromText(std::string_view text);

/// Any text as a value in the query of an address.
std::string queryText(std::string_view text);

} // namespace inspector_web
