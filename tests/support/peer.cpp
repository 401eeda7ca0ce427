#include "support/peer.h"
#include "core/ipc/limits.h"
#include "foundation/io/byte_array_output_stream.h"
#include "foundation/mpack/serializer.h"
#include <algorithm>
#include <gtest/gtest.h>

namespace test {
namespace {

fn::ByteArray encode(const fn::Value& value)
{
    fn::ByteArray bytes;
    fn::ByteArrayOutputStream stream(bytes);
    fn::mpack::Serializer(stream).serialize(value);
    stream.flush();
    return bytes;
}

} // namespace

std::string frame(const fn::Value& value)
{
    const auto body = encode(value);
    std::string bytes(4, '\0');
    for (int i = 0; i < 4; ++i) bytes[static_cast<std::size_t>(i)] = static_cast<char>(body.size() >> (8 * i));
    bytes += body.view();
    return bytes;
}

fn::Value objectMessage(ipc::ObjectId objectId, ipc::WorkerId target, const fn::Value& payload,
    std::initializer_list<std::pair<ipc::ObjectId, const char*>> objects)
{
    fn::Value listed(fn::Value::MAP);
    for (const auto& [id, name] : objects) listed.set(id, name);
    return fn::Value::map({ { ipc::field::TYPE, ipc::type::MESSAGE }, { ipc::field::OBJECT_ID, objectId },
        { ipc::field::TARGET_WORKER_ID, target }, { ipc::field::PAYLOAD, encode(payload) },
        { ipc::field::OBJECTS, listed } });
}

Peer::Peer(fn::uv::Loop& loop, const fn::String& pipePath)
    : _stream(fn::makeAuto<fn::uv::PipeStream>(loop)),
      _helper(ipc::limits::workerFrameBytes)
{
    _stream->connect(pipePath, [this](const fn::uv::Status& status) {
        ASSERT_TRUE(status.ok()) << status.what().view();
        start();
    });
}

Peer::Peer(fn::uv::Loop& loop, fn::uv::PipeStream& listener)
    : _stream(fn::makeAuto<fn::uv::PipeStream>(loop)),
      _helper(ipc::limits::workerFrameBytes)
{
    _stream->accept(listener);
    start();
}

void Peer::start()
{
    _helper.onEOS().connect([this] { _isEnded = true; }).detach();
    _helper.onReadError().connect([this](const fn::uv::Status&) { _isEnded = true; }).detach();
    _helper.onMessage()
        .connect([this](const fn::Value& message, unsigned) {
            _messages.push_back(message);
            if (message.get(ipc::field::TYPE) == fn::Value(ipc::type::HELLO)) {
                _id = message.get(ipc::field::WORKER_ID).to<ipc::WorkerId>();
            }
        })
        .detach();
    _helper.setStream(_stream);
}

void Peer::hello(const char* name, const char* tag)
{
    send(fn::Value::map(
        { { ipc::field::TYPE, ipc::type::HELLO }, { ipc::field::DISPLAY_NAME, name }, { ipc::field::TAG, tag } }));
}

std::size_t Peer::count(int type) const
{
    return static_cast<std::size_t>(std::ranges::count_if(
        _messages, [&](const fn::Value& message) { return message.get(ipc::field::TYPE) == fn::Value(type); }));
}

} // namespace test
