// What can break here: a frame cut at any byte, a length that lies, bytes that are no value, frames delivered after the
// connection was given up, a helper that goes inside its own signal, a dump that hides or crashes.
#include "core/fraction.h"
#include "core/ipc/limits.h"
#include "core/ipc/wire/extension_data.h"
#include "core/ipc/wire/message_dump.h"
#include "core/ipc/wire/message_helper.h"
#include "core/ipc/wire/object_message.h"
#include "core/typed_byte_array.h"
#include "foundation/exceptions.h"
#include "foundation/io/byte_array_output_stream.h"
#include "foundation/mpack/serializer.h"
#include "foundation/uv/loop.h"
#include "support/peer.h"
#include "support/run_until.h"
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>

namespace {

using fn::Value;

/// A helper on one end of a socket pair whose other end is written by hand.
class MessageHelperTest : public testing::Test {
protected:
    void SetUp() override { connect(1024); }

    void connect(std::size_t maxBytes)
    {
        int ends[2];
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends), 0);
        helper = std::make_unique<ipc::MessageHelper>(maxBytes);
        auto stream = fn::makeAuto<fn::uv::PipeStream>(loop);
        stream->open(ends[0]);
        other = fn::makeAuto<fn::uv::PipeStream>(loop);
        other->open(ends[1]);
        helper->onMessage()
            .connect([this](const Value& value, unsigned length) { received.emplace_back(value, length); })
            .detach();
        helper->onEOS().connect([this] { ++ends_; }).detach();
        helper->onReadError().connect([this](const fn::uv::Status& status) { errors.push_back(status); }).detach();
        helper->setStream(stream);
    }

    void write(std::string_view bytes)
    {
        other->write(fn::ByteArray(bytes));
        test::runTurns(loop);
    }

    fn::uv::Loop loop;
    std::unique_ptr<ipc::MessageHelper> helper;
    fn::AutoPtr<fn::uv::PipeStream> other;
    std::vector<std::pair<Value, unsigned>> received;
    std::vector<fn::uv::Status> errors;
    int ends_ = 0;
};

Value sample() { return Value::map({ { 1, 4 }, { 8, fn::ByteArray("bytes") }, { 9, Value(Value::MAP) } }); }

std::string header(std::uint32_t length)
{
    std::string bytes;
    for (int i = 0; i < 4; ++i) bytes += static_cast<char>(length >> (8 * i));
    return bytes;
}

} // namespace

TEST_F(MessageHelperTest, AFrameArrivesWholeWhereverTheStreamIsCut)
{
    const auto bytes = test::frame(sample());
    for (std::size_t cut = 1; cut < bytes.size(); ++cut) {
        write(std::string_view(bytes).substr(0, cut));
        ASSERT_EQ(received.size(), cut - 1) << "a value before its last byte";
        write(std::string_view(bytes).substr(cut));
        ASSERT_EQ(received.size(), cut);
        EXPECT_EQ(received.back(), std::pair(sample(), static_cast<unsigned>(bytes.size() - 4)));
    }
    received.clear();
    for (const char byte : bytes) write(std::string_view(&byte, 1));
    EXPECT_EQ(received.size(), 1u);
    received.clear();
    std::string three;
    for (int i = 0; i < 3; ++i) three += test::frame(i);
    write(three);
    ASSERT_EQ(received.size(), 3u);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(received[static_cast<std::size_t>(i)].first, Value(i));
    other->close();
    test::runTurns(loop);
    EXPECT_EQ(ends_, 1);
    EXPECT_TRUE(errors.empty());
}

TEST_F(MessageHelperTest, FramesThatAreReadInPlaceArriveWholeHoweverTheyAreCut)
{
    connect(4'000'000);
    std::string sent;
    std::vector<Value> expected;
    for (const std::size_t size :
        { 3, 32'760, 40'000, 262'200, 1, 262'130, 262'140, 5, 600'000, 700'000, 200, 300'000 }) {
        expected.emplace_back(std::string(size, static_cast<char>('a' + expected.size())));
        sent += test::frame(expected.back());
    }
    // Who hears of one may run the loop again, with more on its way.
    helper->onMessage().connect([this](const Value&, unsigned) { test::runTurns(loop, 1); }).detach();
    for (const std::size_t piece : { 1'021, 32'768, 65'537, 262'145, 300'001 }) {
        for (std::size_t at = 0; at < sent.size(); at += piece) write(std::string_view(sent).substr(at, piece));
        ASSERT_TRUE(test::runUntil(loop, [&] { return received.size() == expected.size(); })) << piece;
        for (std::size_t i = 0; i < expected.size(); ++i) EXPECT_TRUE(received[i].first == expected[i]) << piece;
        received.clear();
    }
    EXPECT_TRUE(errors.empty());
}

TEST_F(MessageHelperTest, BadFramesEndTheConversation)
{
    const auto nested = std::string(100'000, '\x91') + '\xc0';
    struct Row {
        const char* what;
        std::string bytes;
        int code;
    };
    const Row rows[] = {
        { "length 0", header(0), -EPROTO },
        { "one byte above the bound", header(1025), -EMSGSIZE },
        { "the largest length", header(0xFFFFFFFF), -EMSGSIZE },
        { "a byte that starts nothing", header(1) + '\xc1', -EPROTO },
        { "a text cut short",
            header(2)
                + "\xa5"
                  "a",
            -EPROTO },
        { "an array of four thousand million", header(5) + "\xdd\xff\xff\xff\xff", -EPROTO },
        { "two values", header(2) + "\x01\x02", -EPROTO },
    };
    for (const auto& row : rows) {
        connect(1024);
        received.clear();
        errors.clear();
        write(row.bytes + test::frame(7));
        ASSERT_EQ(errors.size(), 1u) << row.what;
        EXPECT_EQ(errors.front().code(), row.code) << row.what;
        EXPECT_TRUE(errors.front().what().startsWith("MessageHelper failed to read")) << row.what;
        write(test::frame(7));
        EXPECT_TRUE(received.empty()) << row.what << ": good bytes must not heal it";
        EXPECT_EQ(errors.size(), 1u) << row.what;
    }
    connect(200'000);
    errors.clear();
    write(header(static_cast<std::uint32_t>(nested.size())) + nested);
    ASSERT_TRUE(test::runUntil(loop, [&] { return !errors.empty(); }));
    EXPECT_EQ(errors.front().code(), -EPROTO) << "nested too deep";
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends), 0);
    const auto next = fn::makeAuto<fn::uv::PipeStream>(loop);
    next->open(ends[0]);
    other = fn::makeAuto<fn::uv::PipeStream>(loop);
    other->open(ends[1]);
    received.clear();
    EXPECT_THROW(helper->setStream({}), fn::NullPointerException);
    helper->setStream(next);
    write(test::frame(7));
    EXPECT_EQ(received.size(), 1u) << "another conversation";
}

TEST_F(MessageHelperTest, NothingOfAChunkIsDeliveredOnceItsOwnerHasClosedOrGone)
{
    int heard = 0;
    helper->onMessage()
        .connect([&](const Value&, unsigned) {
            ++heard;
            helper->stream()->close();
        })
        .detach();
    write(test::frame(1) + test::frame(2));
    EXPECT_EQ(heard, 1);
    connect(1024);
    heard = 0;
    helper->onMessage()
        .connect([&](const Value&, unsigned) {
            ++heard;
            helper.reset();
        })
        .detach();
    write(test::frame(1) + test::frame(2));
    EXPECT_EQ(heard, 1);
}

TEST_F(MessageHelperTest, ABodyLastsAsLongAsItIsHandledThoughTheHelperHasGone)
{
    connect(4'000'000);
    ipc::MessageHelper sender(100);
    sender.setStream(other);
    std::string small;
    helper->setFrameHandler([&](const ipc::FrameBody& body) {
        if (body.bytes.size() > 100) return true;
        auto& text = small; // What this function has captured goes with the helper.
        helper.reset();
        text.assign(body.bytes.begin(), body.bytes.end());
        return true;
    });
    sender.send(Value(std::string(300'000, 'x')));
    sender.send("small");
    ASSERT_TRUE(test::runUntil(loop, [&] { return !helper; }));
    EXPECT_EQ(small, "\xa5small");
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__) // They end the process instead.
TEST_F(MessageHelperTest, ABodyThatThereIsNoMemoryForEndsTheConversation)
{
    connect(UINT32_MAX);
    rlimit before;
    ASSERT_EQ(::getrlimit(RLIMIT_AS, &before), 0);
    const rlimit scarce { rlim_t(1) << 31, before.rlim_max };
    ASSERT_EQ(::setrlimit(RLIMIT_AS, &scarce), 0);
    write(header(UINT32_MAX - 8) + "x");
    write(test::frame(7));
    ::setrlimit(RLIMIT_AS, &before);
    ASSERT_EQ(errors.size(), 1u);
    EXPECT_EQ(errors.front().code(), -ENOMEM);
    EXPECT_TRUE(received.empty());
}
#endif

TEST_F(MessageHelperTest, SendsWholeFramesAndRefusesWhatTheReceiverWouldNotTake)
{
    connect(4'000'000);
    ipc::MessageHelper sender(100);
    EXPECT_THROW(sender.send(1), fn::NullPointerException);
    EXPECT_THROW(sender.setStream({}), fn::NullPointerException);
    sender.setStream(other);
    // Large bytes travel as parts of their own: the frame must be the same.
    const auto large =
        Value::map({ { 5, 77 }, { 8, fn::ByteArray(std::string(1'000'000, 'x')) }, { 9, Value(Value::MAP) } });
    std::vector<int> outcomes;
    sender.send(sample(), [&](const fn::uv::Status& status) { outcomes.push_back(status.code()); });
    sender.send(large);
    sender.send(large);
    EXPECT_THROW(sender.send(large, {}, 1000), fn::RangeException);
    sender.send(3);
    ASSERT_TRUE(test::runUntil(loop, [&] { return received.size() == 4; }));
    EXPECT_EQ(received[0].first, sample());
    for (const auto& [value, length] : { received[1], received[2] }) {
        EXPECT_EQ(value, large);
        EXPECT_EQ(length, test::frame(large).size() - 4);
    }
    EXPECT_EQ(received[3].first, Value(3));
    EXPECT_EQ(outcomes, std::vector { 0 });
}

std::string joined(const ipc::Frame& frame)
{
    std::string bytes;
    for (const auto& part : frame.parts()) bytes += part.view();
    return bytes;
}

TEST(ObjectMessage, IsTheSameOnTheWireAsTheGeneralMap)
{
    const std::string payloads[] = { "", "x", std::string(255, 'a'), std::string(70'000, 'b') };
    for (const ipc::ObjectId id : { 0ull, 127ull, 128ull, 65'536ull, 1ull << 32, ~0ull }) {
        for (const auto& payload : payloads) {
            for (const bool forwarded : { false, true }) {
                const fn::ByteArray payloadBytes(payload);
                ipc::ObjectMessage message { id, {}, 0xFFFF, payloadBytes.bytes(), {} };
                auto map =
                    Value::map({ { 1, 4 }, { 5, id }, { 7, 0xFFFF }, { 8, payloadBytes }, { 9, Value(Value::MAP) } });
                if (forwarded) {
                    message.source = 300;
                    map.set(6, 300);
                }
                const auto frame = message.encode(1 << 20);
                const auto bytes = joined(frame);
                ASSERT_EQ(bytes, test::frame(map));
                EXPECT_LT(frame.parts().front().capacity(), bytes.size() * 4 / 3 + 200) << "what waits in a queue";
                message.shared = payloadBytes;
                EXPECT_EQ(joined(message.encode(1 << 20)), bytes);
                if (!forwarded) {
                    ipc::ObjectMessageWriter writer;
                    writer.payload().writeShared(payloadBytes);
                    EXPECT_EQ(joined(writer.finish(id, 0xFFFF, {}, 1 << 20)), bytes);
                }
                const fn::ByteArray body(std::string_view(bytes).substr(4));
                for (const auto* array : { &body, static_cast<const fn::ByteArray*>(nullptr) }) {
                    const auto parsed = ipc::ObjectMessage::parse({ body.bytes(), array });
                    ASSERT_TRUE(parsed);
                    EXPECT_EQ(parsed->objectId, id);
                    EXPECT_EQ(parsed->target, 0xFFFF);
                    EXPECT_EQ(fn::ByteArray(parsed->payload.data(), parsed->payload.size()), payloadBytes);
                    EXPECT_EQ(parsed->shared, array ? payloadBytes : fn::ByteArray());
                    EXPECT_EQ(parsed->source, message.source);
                }
                if (payload.size() > 300) continue;
                for (std::size_t cut = 0; cut < body.size(); ++cut) {
                    EXPECT_FALSE(ipc::ObjectMessage::parse({ body.bytes().first(cut) })) << "cut at " << cut;
                }
            }
        }
    }
    const fn::ByteArray large(100u);
    EXPECT_THROW(ipc::ObjectMessage({ 1, {}, 2, large.bytes(), {} }).encode(50), fn::RangeException);
}

TEST(ObjectMessage, LeavesEverythingElseToTheGeneralWay)
{
    const auto plain =
        Value::map({ { 1, 4 }, { 5, 9 }, { 7, 2 }, { 8, fn::ByteArray("p") }, { 9, Value(Value::MAP) } });
    const auto parses = [](const Value& message) {
        const fn::ByteArray body(std::string_view(test::frame(message)).substr(4));
        return ipc::ObjectMessage::parse({ body.bytes() }).has_value();
    };
    ASSERT_TRUE(parses(plain));
    const std::pair<int, Value> changes[] = { { 1, 5 }, { 1, "4" }, { 5, -1 }, { 5, "9" }, { 6, -1 }, { 6, 65'536 },
        { 7, 65'536 }, { 7, {} }, { 8, "p" }, { 9, Value::map({ { 9, "X" } }) }, { 9, {} }, { 10, 1 },
        { 77, "unknown" } };
    for (const auto& [key, value] : changes) {
        auto changed = plain;
        changed.set(key, value);
        EXPECT_FALSE(parses(changed)) << changed.toString().view();
        changed = plain;
        if (changed.remove(key)) {
            EXPECT_FALSE(parses(changed)) << changed.toString().view();
        }
    }
    EXPECT_FALSE(parses("text"));
}

TEST(MessageDump, ShowsWhatIsThereAndNamesWhatItKnows)
{
    fn::ByteArray payload;
    {
        // [object, fraction, labelled bytes, unknown extension]
        fn::ByteArrayOutputStream stream(payload);
        stream.write(std::string_view("\x94\xd7\x01"));
        ipc::writeObjectId(stream, (3ull << 16) + 5);
        fn::ByteArray fraction;
        fn::ByteArrayOutputStream fractionStream(fraction);
        core::Fraction(16, 9).serialize(fractionStream);
        fractionStream.flush();
        stream.write(std::string_view("\xd5\x02"));
        stream.write(fraction.view());
        stream.write(std::string_view("\xd4\x05x"));
        stream.write(std::string_view("\xc0"));
    }
    const auto message = Value::map({ { 1, 4 }, { 5, (3 << 16) + 5 }, { 6, 2 }, { 8, payload },
        { 9, Value(Value::MAP) }, { 77, "kept" }, { "text", 1 } });
    const std::string dump(fmt::format("{}", ipc::MessageDebugFormat { message }));
    for (const char* part : { "1-TYPE", "4-MESSAGE", "5-OBJECT_ID", "6-SOURCE_WORKER_ID", "8-PAYLOAD", "9-OBJECTS",
             "77", "kept", "text", "Object 196613 (from worker 5)", "16/9" }) {
        EXPECT_NE(dump.find(part), std::string::npos) << part << " in " << dump;
    }
    const auto quit = Value::map({ { 1, 8 } });
    EXPECT_EQ(fmt::format("{}", ipc::MessageDebugFormat { quit }).find("QUIT"), std::string::npos);
    const Value text("no map");
    EXPECT_EQ(fmt::format("{}", ipc::MessageDebugFormat { text }), "no map");
    const Value broken(fn::ByteArray("\x95\x01"));
    EXPECT_EQ(ipc::translatePayload(broken), broken);
    EXPECT_EQ(ipc::fieldLabel(11), Value(11));
    EXPECT_EQ(ipc::typeLabel(8), Value(8));
    EXPECT_EQ(ipc::typeLabel(-1), Value(-1));
}
