#pragma once
#include "base/function_ref.h"
#include "core/ipc/wire/message.h"

namespace fn {
class OutputStream;
}

namespace ipc {

/// The way to other workers, which a worker offers to the host of its objects.
class WorkerLink {
public:
    /// Writes a payload. Gives the class names of the shared objects in it, by ObjectId, or nil if there are none.
    using Payload = fn::FunctionRef<fn::Value(fn::OutputStream&)>;

    /// Sends a payload to the holders of an object, or to one worker. Throws what writing it throws; then nothing has been sent.
    /// Before the worker is connected: `fn::RuntimeException`; once the connection has ended it does nothing and gives nil.
    virtual fn::Value sendMessage(WorkerId target, ObjectId objectId, Payload payload) = 0;

    /// Releases `count` of the messages that brought the object. Does nothing unless the worker is connected.
    virtual void sendRelease(ObjectId objectId, std::int32_t count) = 0;

protected:
    ~WorkerLink() = default;
};

} // namespace ipc
