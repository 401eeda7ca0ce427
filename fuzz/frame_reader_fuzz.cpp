// Any bytes as the stream of a peer. Cut into single bytes or given in one piece they make the same frames and end in the
// same error; what is read as a plain message is what the general reading gives; a frame that is sent again is read again.
#include "base/exceptions.h"
#include "core/ipc/wire/detail/message_codec.h"
#include "core/ipc/wire/message_helper.h"
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

/// What is read of a message is what the general reading gives, and a forwarded one differs in its source alone.
void checkMessage(std::string_view bytes)
{
    const fn::ByteArray body(bytes);
    const ipc::MessageView message({ body.bytes(), &body });
    if (!message.isValid()) return;
    const auto general = message.toValue();
    for (int code = ipc::field::TYPE; code <= ipc::field::LAST; ++code) {
        require(!message.has(code) || general.at(code) == message.value(code));
    }
    if (!general.isMap()) return;
    auto expected = general;
    expected.set(ipc::field::SOURCE_WORKER_ID, 300);
    const auto frame = message.forwardedFrom(300);
    std::string forwarded;
    for (const auto& part : frame.parts()) forwarded += part.view();
    fn::MemoryInputStream stream(forwarded.data() + 4, forwarded.size() - 4);
    require(fn::mpack::Deserializer(stream).deserialize() == expected && stream.remaining() == 0);
}

Result read(std::string_view bytes, std::size_t chunkSize)
{
    Result result;
    const auto stream = fn::makeAuto<ScriptedStream>();
    ipc::MessageHelper helper(maxBytes);
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

    for (auto rest = bytes; rest.size() >= sizeof(std::uint32_t);) {
        std::uint32_t length = 0;
        rest.copy(reinterpret_cast<char*>(&length), sizeof(length));
        rest.remove_prefix(sizeof(length));
        checkMessage(rest.substr(0, length));
        rest.remove_prefix(std::min<std::size_t>(length, rest.size()));
    }

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
