#pragma once
#include "core/ipc/wire/message.h"
#include "foundation/duration.h"
#include <cstddef>
#include <cstdint>

/// Bounds on what one peer makes this process hold or wait for. None of them is part of the wire.
namespace ipc::limits {

/// Largest body the hub reads from another process.
inline constexpr std::size_t hubFrameBytes = std::size_t(256) << 20;

/// Largest body a worker reads, and the hub from its own worker. Larger than what others may send to the hub, since the hub
/// adds the source to a message and its own worker answers with lists of what others sent.
inline constexpr std::size_t workerFrameBytes = std::size_t(1) << 30;

/// Room for the field that the hub adds to a message that it forwards.
inline constexpr std::size_t forwardingOverhead = 64;

/// Values inside of one frame's containers: its own map and the list of its objects.
inline constexpr std::size_t frameValues = 16'000'000;

/// Values inside of one payload's containers, about 1.5 GiB of memory.
inline constexpr std::size_t payloadValues = 64'000'000;

/// Values inside of a payload's containers that a log line shows; the bytes of a larger one are shown, as far as fits a line.
inline constexpr std::size_t dumpedValues = 100'000;

/// A receiver that has taken nothing for the not-responding time-out while more than this waits for it is closed.
inline constexpr std::size_t stalledQueueBytes = std::size_t(64) << 20;

/// Above this, those who send to a slow receiver are read no further until half of it has left.
inline constexpr std::size_t pausingQueueBytes = std::size_t(256) << 20;

/// What may wait for one receiver at most: the hub's own worker is never paused, so its messages can pile up.
inline constexpr std::size_t queueBytes = std::size_t(1) << 30;

/// A connection that has not said HELLO by then is closed.
inline constexpr fn::Duration helloTimeout = fn::Duration::seconds(30);

/// Messages that may bring one object to one worker, or leave its owner with it, before they are released: counts are signed
/// 32-bit on the wire, and the owner has a hold for each.
inline constexpr std::uint32_t uses = 1'000'000'000;

/// Objects of one worker that the hub counts, and objects that anybody but their owner made it count.
inline constexpr std::size_t countedObjects = 4'000'000;

/// Registrations of one worker's own objects, those that all workers have made for others, and waiting look-ups of one worker.
inline constexpr std::size_t registrations = 1'000'000;
inline constexpr std::size_t waiters = 100'000;

/// The class name of a registered object or a look-up. Names of classes are far shorter, those of templates included.
inline constexpr std::size_t classNameBytes = 4096;

/// Sticky namespaces, and their bodies in sum: the list of all must fit one answer.
inline constexpr std::size_t stickyNamespaces = 100'000;
inline constexpr std::size_t stickyBytes = std::size_t(64) << 20;
inline constexpr int stickyDepth = 500;

} // namespace ipc::limits

namespace ipc {

/// Those of the hub that a test makes smaller, so that they are met.
struct HubLimits {
    WorkerId workerIds = NO_WORKER_ID; ///< How many there are, 0 among them.
    std::size_t stalledQueueBytes = limits::stalledQueueBytes;
    std::size_t pausingQueueBytes = limits::pausingQueueBytes;
    std::size_t queueBytes = limits::queueBytes;
};

} // namespace ipc
