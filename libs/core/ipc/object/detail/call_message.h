#pragma once
#include "foundation/value.h"
#include <string_view>

/// Keys and types of the maps that callable objects send each other, as the payload of a MESSAGE.
namespace ipc::call {

inline constexpr std::string_view TYPE = "TYPE"; ///< One of the following five.
/// METHOD_NAME, ARGUMENT, REQUEST_ID; TIME_LEFT and TRACE if there are such.
inline constexpr std::string_view CALL = "CALL";
inline constexpr std::string_view CALL_RESPONSE = "CALL_RESPONSE"; ///< REQUEST_ID, RESULT.
inline constexpr std::string_view CALL_ERROR = "CALL_ERROR"; ///< REQUEST_ID, ERROR: an exception record or any value.
inline constexpr std::string_view CANCEL = "CANCEL"; ///< REQUEST_ID.
inline constexpr std::string_view EVENT = "EVENT"; ///< EVENT_NAME, ARGUMENT.

inline constexpr std::string_view METHOD_NAME = "METHOD_NAME";
inline constexpr std::string_view EVENT_NAME = "EVENT_NAME";
inline constexpr std::string_view ARGUMENT = "ARGUMENT";
inline constexpr std::string_view REQUEST_ID = "REQUEST_ID";
inline constexpr std::string_view TIME_LEFT = "TIME_LEFT"; ///< Microseconds until the caller gives up.
inline constexpr std::string_view TRACE = "TRACE"; ///< The number that all calls for one request share.
inline constexpr std::string_view RESULT = "RESULT";
inline constexpr std::string_view ERROR = "ERROR";

inline bool isText(const fn::Value& value, std::string_view text) { return value.isString() && value.string() == text; }

} // namespace ipc::call
