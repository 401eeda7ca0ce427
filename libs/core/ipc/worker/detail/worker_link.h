#pragma once
#include "core/ipc/wire/message.h"
#include <functional>

namespace fn {
class OutputStream;
}

namespace ipc {

class Worker;

/// What a worker's objects, and the tables of them, have of it: the way to other workers.
class WorkerLink {
public:
    /// Writes a payload; gives the shared objects that it mentions, by ObjectId, or nil.
    using Payload = std::function<fn::Value(fn::OutputStream&)>;

    virtual Worker& worker() = 0;

    /// Sends a payload to the holders of an object, or to one worker. Throws what writing it throws; then nothing has been sent.
    /// Before the worker is connected: `fn::RuntimeException`; once the connection has ended it does nothing and gives nil.
    virtual fn::Value sendMessage(WorkerId target, ObjectId objectId, const Payload& payload) = 0;

    /// So many of the messages that brought the object are done with. Nothing unless the worker is connected.
    virtual void sendRelease(ObjectId objectId, std::int32_t count) = 0;

protected:
    ~WorkerLink() = default;
};

} // namespace ipc
