// What can break here: a frame cut at any byte, a length that lies, bytes that are no value, fields that
// others would read in another way, a dump that hides or crashes.
#include "base/exceptions.h"
#include "core/ipc/wire/detail/message_codec.h"
#include "core/ipc/wire/detail/message_dump.h"
#include "core/ipc/wire/message_helper.h"
#include "foundation/mpack/deserializer.h"
#include "foundation/uv/loop.h"
#include "support/peer.h"
#include "support/run_until.h"
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <tuple>

namespace {

using fn::Value;

/// A helper on one end of a socket pair whose other end is written by hand.
class MessageHelperTest : public testing::Test {
protected:
    void connect(std::size_t maxBytes)
    {
        helper = std::make_unique<ipc::MessageHelper>(maxBytes);
        helper->onMessage()
            .connect([this](const Value& value, unsigned length) { received.emplace_back(value, length); })
            .detach();
        helper->onEOS().connect([this] { ++endings; }).detach();
        helper->onReadError().connect([this](const fn::uv::Status& status) { errors.push_back(status); }).detach();
        converse();
        received.clear();
        errors.clear();
    }

    /// Begins a conversation with the other end.
    void converse()
    {
        int ends[2];
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends), 0);
        const auto stream = fn::makeAuto<fn::uv::PipeStream>(loop);
        stream->open(ends[0]);
        other = fn::makeAuto<fn::uv::PipeStream>(loop);
        other->open(ends[1]);
        helper->setStream(stream);
    }

    void write(std::string_view bytes)
    {
        other->write(fn::ByteArray(bytes));
        test::settle(loop);
    }

    fn::uv::Loop loop;
    std::unique_ptr<ipc::MessageHelper> helper;
    fn::AutoPtr<fn::uv::PipeStream> other;
    std::vector<std::pair<Value, unsigned>> received;
    std::vector<fn::uv::Status> errors;
    int endings = 0;
};

std::string header(std::uint32_t length)
{
    std::string bytes;
    for (int i = 0; i < 4; ++i) bytes += static_cast<char>(length >> (8 * i));
    return bytes;
}

std::string joined(const ipc::Frame& frame)
{
    std::string bytes;
    for (const auto& part : frame.parts()) bytes += part.view();
    return bytes;
}

Value bodyOf(const ipc::Frame& frame)
{
    const auto bytes = joined(frame);
    fn::MemoryInputStream stream(bytes.data() + 4, bytes.size() - 4);
    return *fn::mpack::Deserializer(stream).deserialize();
}

} // namespace

TEST_F(MessageHelperTest, FramesArriveWholeHoweverTheyAreCut)
{
    // The fuzzer cuts small ones; large ones are read in place.
    connect(4'000'000);
    std::string sent;
    std::vector<std::pair<Value, unsigned>> expected;
    for (const std::size_t size :
        { 3, 32'760, 40'000, 262'200, 1, 262'130, 262'140, 5, 600'000, 700'000, 200, 300'000 }) {
        const Value text(std::string(size, static_cast<char>('a' + expected.size())));
        const auto bytes = test::frame(text);
        expected.emplace_back(text, static_cast<unsigned>(bytes.size() - 4));
        sent += bytes;
    }
    // Who hears of one may run the loop again, with more on its way.
    helper->onMessage().connect([this](const Value&, unsigned) { test::runTurns(loop, 1); }).detach();
    for (const std::size_t piece : { 1'021, 32'768, 65'537, 262'145, 300'001 }) {
        for (std::size_t at = 0; at < sent.size(); at += piece) write(std::string_view(sent).substr(at, piece));
        EXPECT_TRUE(received == expected) << "in pieces of " << piece;
        received.clear();
    }
    other->close();
    test::settle(loop);
    EXPECT_EQ(endings, 1);
    EXPECT_TRUE(errors.empty());
}

TEST_F(MessageHelperTest, BadFramesEndTheConversation)
{
    const auto nested = std::string(100'000, '\x91') + '\xc0';
    const std::tuple<const char*, std::string, int> rows[] {
        { "length 0", header(0), -EPROTO },
        { "one byte above the bound", header(200'001), -EMSGSIZE },
        { "two values", header(2) + "\x01\x02", -EPROTO }, // What else is no value, the fuzz target tries.
        { "nested too deep", header(static_cast<std::uint32_t>(nested.size())) + nested, -EPROTO },
    };
    for (const auto& [what, bytes, code] : rows) {
        SCOPED_TRACE(what);
        connect(200'000);
        write(bytes + test::frame(7));
        write(test::frame(7));
        EXPECT_TRUE(received.empty()) << "good bytes must not heal it";
        ASSERT_EQ(errors.size(), 1u);
        EXPECT_EQ(errors.front().code(), code);
    }
    EXPECT_THROW(helper->setStream({}), fn::NullPointerException);
    converse();
    write(test::frame(7));
    EXPECT_EQ(received.size(), 1u) << "another conversation";
}

TEST_F(MessageHelperTest, NothingOfAChunkIsDeliveredOnceItsOwnerHasClosedOrGone)
{
    for (const bool goes : { false, true }) {
        connect(1024);
        int heard = 0;
        const auto end = [&](const Value&, unsigned) {
            ++heard;
            goes ? helper.reset() : helper->stream()->close();
        };
        helper->onMessage().connect(end).detach();
        write(test::frame(1) + test::frame(2));
        EXPECT_EQ(heard, 1) << (goes ? "gone" : "closed");
    }
}

TEST(MessageCodec, WritesWhatTheGeneralMapWouldBe)
{
    for (const ipc::ObjectId id : { 0ull, 127ull, 128ull, 255ull, 256ull, 65'535ull, 65'536ull, 1ull << 32, ~0ull }) {
        const auto release = ipc::encodeMessage(ipc::type::INSTANCE_RELEASE, { { 5, id }, { 10, 300 } }, 100);
        ASSERT_EQ(joined(release), test::frame(Value::map({ { 1, 6 }, { 5, id }, { 10, 300 } })));
        for (const auto& payload : { std::string("x"), std::string(255, 'a'), std::string(70'000, 'b') }) {
            ipc::MessageWriter writer(id, 0xFFFF);
            writer.payload().writeShared(fn::ByteArray(payload));
            const auto frame = writer.finish({}, 1 << 20);
            EXPECT_EQ(bodyOf(frame),
                Value::map(
                    { { 1, 4 }, { 5, id }, { 7, 0xFFFF }, { 8, fn::ByteArray(payload) }, { 9, Value(Value::MAP) } }));
            EXPECT_LT(frame.parts().front().capacity(), joined(frame).size() * 4 / 3 + 200) << "what waits in a queue";
        }
    }
    EXPECT_THROW(ipc::encodeMessage(ipc::type::HELLO, { { 2, std::string(100, 'a') } }, 50), fn::RangeException);
}

TEST(MessageCodec, ForwardsFieldsInAnyOrderAndOfAnyKindAsTheyCame)
{
    using namespace std::string_literals;
    const auto large = "\x08\xc5\x50\0"s + std::string(0x5000, 'b');
    const std::string bodies[] = {
        "\x85\x01\x04\x05\x09\x07\x02\x08\xc4\x01x\x09\x80"s,
        "\x85\x01\x04\x05\x09\x07\x02"s + large + "\x09\x80",
        "\xde\0\x05\x09\x80\x08\xc0\x07\xcc\x02\x06\xa1x\x01\xd0\x04"s, // Backwards, with a source of its own.
        "\x86\x01\x04\x05\x09"s + large + "\x06\x01\x07\x02\x09\x80",
        "\x85\xa1k\x93\x01\xc0\x80\x01\x04\xd1\0\x05\x09\xcb\x40\x59\0\0\0\0\0\0\x01\x4d\xc7\x02\x05zz"s,
        "\x80"s,
    };
    for (const auto& bytes : bodies) {
        const fn::ByteArray body(bytes);
        for (const bool isShared : { false, true }) {
            const ipc::MessageView view({ body.bytes(), isShared ? &body : nullptr });
            ASSERT_TRUE(view.isValid());
            auto expected = view.toValue();
            expected.set(ipc::field::SOURCE_WORKER_ID, 300);
            EXPECT_EQ(bodyOf(view.forwardedFrom(300)), expected);
        }
    }
    const std::string refused[] = { "", "\x81\x01", "\x80\xc0", "\x82\x05\x01\xcd\0\x05\x02"s, "\x81\x4d\xd4\xff\x01" };
    for (const auto& bytes : refused)
        EXPECT_FALSE(ipc::MessageView({ fn::ByteArray(bytes).bytes() }).isValid()) << bytes;
}

TEST(MessageDump, ShowsWhatIsThereAndNamesWhatItKnows)
{
    // [object, fraction, unknown extension, nil]
    const fn::ByteArray payload(std::string_view("\x94\xd7\x01\x05\0\x03\0\0\0\0\0\xd5\x02\x10\x09\xd4\x05x\xc0", 19));
    const std::pair<Value, const char*> rows[] {
        { Value::map({ { 1, 4 }, { 5, 196613 }, { 6, 2 }, { 8, payload }, { 77, "kept" }, { "text", 1 } }),
            R"({77: "kept", "1-TYPE": "4-MESSAGE", "5-OBJECT_ID": 196613, "6-SOURCE_WORKER_ID": 2, )"
            R"("8-PAYLOAD": [Object 196613 (from worker 5), 16/9, nil, nil], "text": 1})" },
        { Value::map({ { 1, 8 }, { 2, {} }, { 10, -1 } }),
            R"({"1-TYPE": 8, "10-USAGE_COUNT": -1, "2-DISPLAY_NAME": nil})" },
        { Value::map({ { 1, "text" }, { 8, fn::ByteArray("\x95\x01") }, { 11, 1 } }),
            R"({11: 1, "1-TYPE": "text", "8-PAYLOAD": 9501})" },
        { "no map", "no map" },
    };
    for (const auto& [message, text] : rows) EXPECT_EQ(fmt::format("{}", ipc::MessageDebugFormat { message }), text);
    EXPECT_EQ(ipc::typeLabel(-1), Value(-1));
}
