#pragma once
#include "foundation/value.h"
#include <cstdint>

/// Ids, fields, types and extensions of the messages on the wire. docs/wire-format.md explains them with examples.
namespace ipc {

/// Names a participant. Given out by the dispatcher in HELLO order; the dispatcher's own worker is 0.
using WorkerId = std::uint16_t;

/// As an id: none yet. As a target: every worker that holds a reference to the object; for the registry all but worker 0.
inline constexpr WorkerId NO_WORKER_ID = 0xFFFF;

/// Names a shared object: the low 16 bits are its owner's WorkerId, the others the owner's sequence number.
using ObjectId = std::uint64_t;

/// The registry is the first object of worker 0, so everybody knows its id without having been told.
inline constexpr ObjectId REGISTRY_OBJECT_ID = 0;

/// A call with this request id, or without a request id, gets no answer.
inline constexpr std::uint32_t NO_REQUEST_ID = 0xFFFFFFFF;

/// The worker whose object it is.
constexpr WorkerId ownerOf(ObjectId objectId) { return static_cast<WorkerId>(objectId & 0xFFFF); }

/// Keys of a message map.
namespace field {
inline constexpr int TYPE = 1; ///< Integer, a value of `type`.
inline constexpr int DISPLAY_NAME = 2; ///< Text, in HELLO: what people call the worker.
inline constexpr int TAG = 3; ///< Text, in HELLO: the launch that the worker comes from.
/// Integer: in HELLO's answer the id given, in WORKER_DEAD and WORKER_ID_REUSED the worker concerned.
inline constexpr int WORKER_ID = 4;
inline constexpr int OBJECT_ID = 5; ///< Integer: the object that a message or a release is about.
inline constexpr int SOURCE_WORKER_ID = 6; ///< Written by the dispatcher when it forwards.
inline constexpr int TARGET_WORKER_ID = 7; ///< Integer, in MESSAGE: the worker that it is for, or NO_WORKER_ID.
inline constexpr int PAYLOAD = 8; ///< Bytes: one MessagePack value of its own.
inline constexpr int OBJECTS = 9; ///< Map from ObjectId to class name: what the payload mentions.
inline constexpr int USAGE_COUNT = 10; ///< Integer, in releases: how many messages are given back.
inline constexpr int LAST = USAGE_COUNT; ///< Fields above it are unknown; the dispatcher forwards them as they came.
} // namespace field

/// Values of `field::TYPE`.
namespace type {
inline constexpr int INVALID = 0; ///< What a message without a type counts as; never sent.
inline constexpr int HELLO = 1; ///< A participant's first message, and the hub's answer with its id.
inline constexpr int PING = 2; ///< The hub asks whether a participant is alive.
inline constexpr int PONG = 3; ///< Its answer.
inline constexpr int MESSAGE = 4; ///< What one object's side says to the other one.
inline constexpr int REFERENCE_RELEASE = 5; ///< A holder lets go of an object.
inline constexpr int INSTANCE_RELEASE = 6; ///< The hub lets the owner let go of its holds.
inline constexpr int WORKER_DEAD = 7; ///< A worker has gone, and all its objects with it.
inline constexpr int QUIT = 8; ///< The application ends.
inline constexpr int WORKER_ID_REUSED = 9; ///< The id of a dead worker names a new worker from now on.
} // namespace type

/// MessagePack extension types inside a payload.
namespace extension {
inline constexpr std::int8_t OBJECT = 1; ///< 8 bytes: the ObjectId, little-endian.
inline constexpr std::int8_t FRACTION = 2; ///< `core::Fraction::serialize()`.
inline constexpr std::int8_t TYPED_BYTE_ARRAY = 3; ///< `core::TypedByteArray::serialize()`.
} // namespace extension

} // namespace ipc
