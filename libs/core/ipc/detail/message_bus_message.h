#pragma once

/// Keys and names in the payloads that buses and relay send each other.
namespace ipc::bus {

inline constexpr const char* TYPE = "TYPE";
inline constexpr const char* BUS_MESSAGE = "BUS_MESSAGE"; ///< Bus to relay: a plain message with a PAYLOAD.
inline constexpr const char* PAYLOAD = "PAYLOAD"; ///< Map of the following four.
inline constexpr const char* WORKER_ID = "workerId"; ///< The sending worker; for dumps.
inline constexpr const char* NAMESPACE = "namespace";
inline constexpr const char* BODY = "body";
inline constexpr const char* STICKY = "sticky";

inline constexpr const char* EVENT = "busMessage"; ///< Event, relay to every bus: the PAYLOAD as it came.
inline constexpr const char* GET_STICKY_MESSAGES = "getStickyMessages"; ///< Method: {NAMESPACE, BODY} by namespace.

} // namespace ipc::bus
