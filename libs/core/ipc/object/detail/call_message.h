#pragma once
#include "foundation/value.h"
#include <string_view>

/// Keys and types of the maps that callable objects send each other, as the payload of a MESSAGE.
namespace ipc::call {

inline constexpr const char* TYPE = "TYPE"; ///< One of the following five.
inline constexpr const char* CALL = "CALL"; ///< METHOD_NAME, ARGUMENT, REQUEST_ID; TIME_LEFT and TRACE if there are such.
inline constexpr const char* CALL_RESPONSE = "CALL_RESPONSE"; ///< REQUEST_ID, RESULT.
inline constexpr const char* CALL_ERROR = "CALL_ERROR"; ///< REQUEST_ID, ERROR: an exception record or any value.
inline constexpr const char* CANCEL = "CANCEL"; ///< REQUEST_ID.
inline constexpr const char* EVENT = "EVENT"; ///< EVENT_NAME, ARGUMENT.

inline constexpr const char* METHOD_NAME = "METHOD_NAME";
inline constexpr const char* EVENT_NAME = "EVENT_NAME";
inline constexpr const char* ARGUMENT = "ARGUMENT";
inline constexpr const char* REQUEST_ID = "REQUEST_ID";
inline constexpr const char* TIME_LEFT = "TIME_LEFT"; ///< Microseconds until the caller gives up.
inline constexpr const char* TRACE = "TRACE"; ///< The number that all calls for one request share.
inline constexpr const char* RESULT = "RESULT";
inline constexpr const char* ERROR = "ERROR";

inline bool isText(const fn::Value& value, std::string_view text) { return value.isString() && value.string() == text; }

} // namespace ipc::call
