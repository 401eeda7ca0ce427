#pragma once
#include "core/ipc/wire/message.h"
#include "core/ipc/wire/message_helper.h"
#include "foundation/uv/pipe_stream.h"
#include <string>
#include <vector>

namespace test {

/// One frame as bytes.
std::string frame(const fn::Value& value);

/// A participant that speaks the wire by hand, as a stranger would: it answers nothing by itself and sends whatever it is
/// told to. Lives on the loop of the test.
class Peer {
public:
    /// Connects to `pipePath`. It can send once that has been done.
    Peer(fn::uv::Loop& loop, const fn::String& pipePath);
    /// Takes a connection that `listener` announced.
    Peer(fn::uv::Loop& loop, fn::uv::PipeStream& listener);
    Peer(const Peer&) = delete;

    void send(const fn::Value& message) { sendRaw(frame(message)); }
    void sendRaw(std::string_view bytes) { _stream->write(fn::ByteArray(bytes)); }
    void hello(const char* name = "Peer", const char* tag = "");
    void close() { _stream->close(); }

    bool isEnded() const { return _isEnded; } ///< The other side has closed.
    const std::vector<fn::Value>& messages() const { return _messages; }
    std::size_t count(int type) const;
    ipc::WorkerId id() const { return _id; } ///< From the HELLO reply.
    void clear() { _messages.clear(); }
    const fn::AutoPtr<fn::uv::PipeStream>& stream() const { return _stream; }

private:
    void start();

    fn::AutoPtr<fn::uv::PipeStream> _stream;
    ipc::MessageHelper _helper;
    std::vector<fn::Value> _messages;
    ipc::WorkerId _id = ipc::NO_WORKER_ID;
    bool _isEnded = false;
};

/// A MESSAGE; `objects` by id.
fn::Value objectMessage(ipc::ObjectId objectId, ipc::WorkerId target, const fn::Value& payload,
    std::initializer_list<std::pair<ipc::ObjectId, const char*>> objects = {});

} // namespace test
