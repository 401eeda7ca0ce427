#pragma once
#include "core/ipc/wire/message.h"
#include "foundation/duration.h"
#include <cstddef>
#include <cstdint>

/// Bounds on what one peer makes this process hold or wait for. Peers never exchange them.
namespace ipc::limits {

/// Largest body the hub reads from another process.
inline constexpr std::size_t hubFrameBytes = std::size_t(256) << 20;

/// Largest body a worker reads, and the hub from its own worker. It is larger than `hubFrameBytes`, since the hub adds the source
/// to a message, and its own worker answers with lists of what other workers sent.
inline constexpr std::size_t workerFrameBytes = std::size_t(1) << 30;

/// Bytes that are kept free for the field that the hub adds to a message that it forwards.
inline constexpr std::size_t forwardingOverhead = 64;

/// Values inside of one frame's containers: its own map and the list of its objects.
inline constexpr std::size_t frameValues = 16'000'000;

/// Values inside of one payload's containers. So many take about 1.5 GiB of memory.
inline constexpr std::size_t payloadValues = 64'000'000;

/// A log line shows a payload with more values than this inside of its containers as bytes, as many as fit the line.
inline constexpr std::size_t dumpedValues = 100'000;

/// A receiver that has taken nothing for the not-responding time-out while more than this waits for it is closed.
inline constexpr std::size_t stalledQueueBytes = std::size_t(64) << 20;

/// When more than this waits for a slow receiver, the hub reads no further from its senders, until at most half of this waits.
inline constexpr std::size_t pausingQueueBytes = std::size_t(256) << 20;

/// A receiver is closed when more than this waits for it. The hub's own worker is never paused, so its messages can pile up.
inline constexpr std::size_t queueBytes = std::size_t(1) << 30;

/// A connection that has not said HELLO after this time is closed.
inline constexpr fn::Duration helloTimeout = fn::Duration::seconds(30);

/// Messages that may bring one object to one worker, or carry it away from its owner, until they are released. Counts are signed
/// 32-bit numbers on the wire, and the owner holds its object once for each message.
inline constexpr std::uint32_t uses = 1'000'000'000;

/// Objects of one worker that the hub counts since their owner has sent them, and in sum those that others sent first.
inline constexpr std::size_t countedObjects = 4'000'000;

/// Registrations that one worker has made of its own objects, and in sum those of others' objects; waiting look-ups of a worker.
inline constexpr std::size_t registrations = 1'000'000;
inline constexpr std::size_t waiters = 100'000;

/// Bytes of the class name of a registered object or a look-up, and of what HELLO tells of a worker, where longer texts are cut.
/// Names of classes are far shorter, also those of templates.
inline constexpr std::size_t nameBytes = 4096;

/// Sticky messages that the bus keeps, their bytes in sum, and the depth of one body: the list of all must fit one answer.
inline constexpr std::size_t stickyNamespaces = 100'000;
inline constexpr std::size_t stickyBytes = std::size_t(64) << 20;
inline constexpr int stickyDepth = 500;

} // namespace ipc::limits

namespace ipc {

/// The bounds of one hub: an application with little memory makes them smaller, and so do tests that reach them.
struct HubLimits {
    WorkerId workerIds = NO_WORKER_ID; ///< How many ids there are, from 0 on.
    std::size_t stalledQueueBytes = limits::stalledQueueBytes;
    std::size_t pausingQueueBytes = limits::pausingQueueBytes;
    std::size_t queueBytes = limits::queueBytes;
};

} // namespace ipc
