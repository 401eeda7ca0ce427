// What can break here: bytes lost, doubled or out of order; a completion missing or called twice; memory that libuv still needs.
#include "pipe_pair.h"
#include <array>
#include <deque>
#include <random>

namespace {

using fn::ByteArray;
using fn::uv::Loop;
using fn::uv::Status;
using test::Inbox;
using test::PipeAndSocket;
using test::runTurns;
using test::runUntil;

/// A pipe in random use, beside a model of its two byte streams.
class History {
public:
    explicit History(unsigned seed) : _random(seed)
    {
        _pair.pipe->readStart([this](std::ptrdiff_t count, const std::uint8_t* data) { onRead(count, data); });
    }

    void run(void (History::*end)())
    {
        for (int step = 0; step < 100; ++step) {
            act();
            ASSERT_EQ(_pair.pipe->sentBytes() + _pair.pipe->queuedBytes(), _written.size()) << step;
            ASSERT_GE(_pair.pipe->sentBytes(), _pair.received.size()) << step;
            ASSERT_EQ(_pair.pipe->isReading(), _isReading) << step;
        }
        (this->*end)();
        EXPECT_TRUE(_written.starts_with(_pair.received));
    }

    // How it may end.

    void drain()
    {
        _isReading = true;
        _pair.pipe->readResume();
        EXPECT_TRUE(takeUntil(
            [&] { return _pair.received.size() == _written.size() && _awaited.empty() && _heard == _toHear; }));
        EXPECT_EQ(_pair.pipe->queuedBytes(), 0U);
    }

    void close()
    {
        auto& pipe = *_pair.pipe;
        pipe.close([this] { onClosed(); });
        expectCancelledBehind(pipe.sentBytes());
        write(10); // Too late.
        pipe.close([] { ADD_FAILURE() << "closed twice"; });
        EXPECT_TRUE(runUntil(_loop, [&] { return _isClosed; }));
        write(10); // Much too late.
        EXPECT_TRUE(takeUntil([&] { return _awaited.empty(); }));
        EXPECT_EQ(_pair.received.size(), pipe.sentBytes());
    }

    void release()
    {
        _pair.pipe.reset();
        _pair.take();
        expectCancelledBehind(_pair.received.size());
        EXPECT_TRUE(runUntil(_loop, [&] { return _awaited.empty(); }));
    }

    void losePeer()
    {
        _isReading = true;
        _pair.pipe->readResume();
        _outcome = [sent = _pair.pipe->sentBytes()](std::size_t end, int code) {
            EXPECT_TRUE((code == 0 && end <= sent) || code == -EPIPE || code == -ECONNRESET) << code;
        };
        _pair.hangUp();
        for (int i = 0; i < 5; ++i) write(10);
        EXPECT_TRUE(runUntil(_loop, [&] { return _awaited.empty() && !_isReading; }));
        EXPECT_FALSE(_pair.pipe->isReading());
        EXPECT_EQ(_pair.pipe->queuedBytes(), 0U);
    }

    void outliveLoop()
    {
        _outcome = [](std::size_t, int) { ADD_FAILURE() << "Nothing runs while the loop ends."; };
        _ownLoop.reset();
        EXPECT_EQ(_token.use_count(), 1);
        EXPECT_TRUE(_pair.pipe->isClosed());
        _pair.pipe->write(ByteArray("late"), [this](const Status&) { _outcome(0, 0); });
        _pair.pipe->close();
        _pair.take();
    }

private:
    unsigned below(unsigned limit) { return static_cast<unsigned>(_random() % limit); }
    bool oneIn(unsigned count) { return below(count) == 0; }

    void act()
    {
        switch (below(8)) {
        case 0: return write(below(100'000));
        case 1: // Of all sizes around that up to which writes are joined.
            for (int i = 0; i < 30; ++i) write(below(2'500));
            return;
        case 2: // More than one system call takes.
            for (int i = 0; i < 400; ++i) write(below(10));
            return;
        case 3: return runTurns(_loop, 1 + static_cast<int>(below(3)));
        case 4: return _pair.take();
        case 5: return send();
        case 6: _isReading = false; return _pair.pipe->readStop();
        default: _isReading = true; return _pair.pipe->readResume();
        }
    }

    std::string nextBytes(std::size_t size)
    {
        std::string text(size, '\0');
        auto state = static_cast<unsigned>(_random());
        for (auto& byte : text) byte = static_cast<char>((state = state * 1664525 + 1013904223) >> 24);
        return text;
    }

    void write(std::size_t size)
    {
        const auto text = nextBytes(size);
        _written += text;
        fn::uv::Stream::Completion completion;
        if (oneIn(3)) {
            _awaited.push_back(_written.size());
            completion = [this, kept = _token, end = _written.size()](const Status& status) { onWritten(end, status); };
        }
        if (!oneIn(4)) return _pair.pipe->write(ByteArray(text), std::move(completion));
        const std::array parts { ByteArray(text.substr(0, size / 3)), ByteArray(), ByteArray(text.substr(size / 3)) };
        _pair.pipe->write(parts, std::move(completion));
    }

    void onWritten(std::size_t end, const Status& status)
    {
        ASSERT_FALSE(_awaited.empty());
        EXPECT_EQ(_awaited.front(), end) << "Each once, and in order.";
        _awaited.pop_front();
        if (_outcome) return _outcome(end, status.code());
        EXPECT_TRUE(status.ok());
        EXPECT_GE(_pair.pipe->sentBytes(), end);
    }

    void send()
    {
        const auto text = nextBytes(below(20));
        const auto sent = ::send(_pair.socket, text.data(), text.size(), 0);
        if (sent > 0) _toHear += text.substr(0, static_cast<std::size_t>(sent));
    }

    void onRead(std::ptrdiff_t count, const std::uint8_t* data)
    {
        EXPECT_TRUE(std::exchange(_isReading, count > 0));
        if (count < 0) return;
        _heard.append(reinterpret_cast<const char*>(data), static_cast<std::size_t>(count));
    }

    void onClosed()
    {
        EXPECT_TRUE(_awaited.empty()) << "Before the end of all writes.";
        EXPECT_FALSE(std::exchange(_isClosed, true));
    }

    template <typename Condition> bool takeUntil(Condition condition)
    {
        return runUntil(_loop, [&] {
            _pair.take();
            return condition();
        });
    }

    void expectCancelledBehind(std::size_t sent)
    {
        _outcome = [sent](std::size_t end, int code) { EXPECT_EQ(code, end <= sent ? 0 : -ECANCELED) << end; };
    }

    std::mt19937_64 _random;
    std::unique_ptr<Loop> _ownLoop = std::make_unique<Loop>();
    Loop& _loop = *_ownLoop;
    PipeAndSocket _pair { _loop, oneIn(2) ? 4096 : 200'000 };
    std::string _written;
    std::deque<std::size_t> _awaited; ///< Where those writes end that have a completion.
    std::function<void(std::size_t end, int code)> _outcome; ///< What is expected of them.
    std::string _toHear;
    std::string _heard;
    bool _isClosed = false;
    bool _isReading = true;
    const std::shared_ptr<int> _token = std::make_shared<int>();
};

TEST(PipeStream, CarriesWhatAModelSaysWhateverItsUsersDoAndHoweverItEnds)
{
    const std::pair<const char*, void (History::*)()> ends[] = { { "drained", &History::drain },
        { "closed", &History::close }, { "released", &History::release }, { "without its peer", &History::losePeer },
        { "without its loop", &History::outliveLoop } };
    for (const auto& [name, end] : ends) {
        for (unsigned seed = 0; seed < 12 && !testing::Test::HasFailure(); ++seed) {
            SCOPED_TRACE(fmt::format("{}, seed {}", name, seed));
            History(seed).run(end);
        }
    }
}

TEST(PipeStream, ACallbackThatRunsTheLoopAgainOrReplacesItselfKeepsItsBytesAndTheirOrder)
{
    Loop loop;
    PipeAndSocket pair(loop), other(loop);
    Inbox inbox, otherInbox;
    otherInbox.readFrom(*other.pipe);
    pair.pipe->readStart([&](std::ptrdiff_t count, const std::uint8_t* data) {
        pair.send("second");
        other.send("elsewhere");
        EXPECT_TRUE(runUntil(loop, [&] { return otherInbox.text == "elsewhere"; }));
        inbox.readFrom(*pair.pipe);
        inbox.text.assign(reinterpret_cast<const char*>(data), static_cast<std::size_t>(count));
    });
    pair.send("first");
    EXPECT_TRUE(runUntil(loop, [&] { return inbox.text == "firstsecond"; })) << inbox.text;
}

} // namespace
