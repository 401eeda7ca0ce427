// Any bytes as the stream of a peer. Cut into single bytes or given in one piece they make the same frames and end in the
// same error; what is read as a plain message is what the general reading gives; a frame that is sent again is read again.
#include "base/exceptions.h"
#include "core/ipc/wire/message_helper.h"
#include "core/ipc/wire/object_message.h"
#include "foundation/io/memory_input_stream.h"
#include "foundation/mpack/deserializer.h"
#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

constexpr std::size_t maxBytes = 64 * 1024; // Large enough for bodies that are read in place.

void require(bool condition)
{
    if (!condition) std::abort();
}

/// A stream whose bytes come from the test and whose output is kept.
class ScriptedStream final : public fn::uv::Stream {
public:
    void readStart(ReadCallback callback) override { _callback = std::move(callback); }
    void readStop() override { }
    void readResume() override { }
    bool isReading() const noexcept override { return true; }
    void readPending() override { }
    void readInto(std::span<std::uint8_t> memory) override { _target = memory; }
    void write(fn::ByteArray bytes, Completion) override { output += bytes.view(); }
    void write(std::span<const fn::ByteArray> parts, Completion) override
    {
        for (const auto& part : parts) output += part.view();
    }
    void whenQueuedAtMost(std::size_t, folly::Function<void()>) override { }
    std::size_t queuedBytes() const noexcept override { return 0; }
    std::uint64_t sentBytes() const noexcept override { return output.size(); }
    void close(folly::Function<void()>) override { _closed = true; }
    bool isClosed() const noexcept override { return _closed; }

    void deliver(std::string_view bytes)
    {
        while (!bytes.empty() && !_closed) {
            if (const auto target = std::exchange(_target, {}); !target.empty()) {
                const auto count = bytes.copy(reinterpret_cast<char*>(target.data()), target.size());
                bytes.remove_prefix(count);
                _callback(static_cast<std::ptrdiff_t>(count), target.data());
            } else {
                // A copy of its own size: reading beyond it is seen.
                const std::vector<std::uint8_t> chunk(bytes.begin(), bytes.end());
                bytes = {};
                _callback(static_cast<std::ptrdiff_t>(chunk.size()), chunk.data());
            }
        }
    }

    std::string output;

private:
    ReadCallback _callback;
    std::span<std::uint8_t> _target;
    bool _closed = false;
};

struct Result {
    std::vector<std::pair<fn::Value, unsigned>> frames;
    std::vector<int> errors;
    friend bool operator==(const Result&, const Result&) = default;
};

void checkPlain(const ipc::FrameBody& body)
{
    const auto plain = ipc::ObjectMessage::parse(body);
    if (!plain) return;
    fn::MemoryInputStream stream(body.bytes.data(), body.bytes.size());
    const auto general = fn::mpack::Deserializer(stream).deserialize();
    require(general && stream.remaining() == 0);
    require(general->at(ipc::field::TYPE) == fn::Value(ipc::type::MESSAGE));
    require(general->at(ipc::field::OBJECT_ID) == fn::Value(plain->objectId));
    require(general->at(ipc::field::TARGET_WORKER_ID) == fn::Value(plain->target));
    require(general->at(ipc::field::PAYLOAD) == fn::Value(fn::ByteArray(plain->payload.data(), plain->payload.size())));
    require(!body.array || std::ranges::equal(plain->shared.bytes(), plain->payload));
    require(general->at(ipc::field::OBJECTS).size() == 0);
    require(general->has(ipc::field::SOURCE_WORKER_ID) == plain->source.has_value());
}

Result read(std::string_view bytes, std::size_t chunkSize)
{
    Result result;
    const auto stream = fn::makeAuto<ScriptedStream>();
    ipc::MessageHelper helper(maxBytes);
    helper.setFrameHandler([](const ipc::FrameBody& body) {
        checkPlain(body);
        return false;
    });
    helper.onMessage()
        .connect([&](const fn::Value& value, unsigned length) { result.frames.emplace_back(value, length); })
        .detach();
    helper.onReadError()
        .connect([&](const fn::uv::Status& status) { result.errors.push_back(status.code()); })
        .detach();
    helper.setStream(stream);
    for (std::size_t at = 0; at < bytes.size(); at += chunkSize) stream->deliver(bytes.substr(at, chunkSize));
    return result;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    const auto whole = read(bytes, size > 0 ? size : 1);
    require(read(bytes, 1) == whole);
    require(read(bytes, 7) == whole);
    require(whole.errors.size() <= 1);

    const auto sink = fn::makeAuto<ScriptedStream>();
    ipc::MessageHelper sender(maxBytes);
    sender.setStream(sink);
    std::size_t sent = 0;
    for (const auto& [value, length] : whole.frames) {
        try {
            sender.send(value, {}, maxBytes);
            ++sent;
        } catch (const fn::RangeException&) {
            require(length > maxBytes / 2); // Short reals are written as long ones; nothing else grows.
        }
    }
    require(read(sink->output, 64).frames.size() == sent);
    return 0;
}
