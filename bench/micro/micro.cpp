// What do promises, loop, pipes and the hub cost by themselves? For finding out what a slower call is due to. Everybody is on one
// loop here, one message under way at a time.
#include "core/ipc/dispatcher/dispatcher.h"
#include "core/ipc/wire/message.h"
#include "core/services/app_info.h"
#include "driver/driver.h"
#include "foundation/io/byte_array_output_stream.h"
#include "foundation/mpack/serializer.h"
#include "foundation/promise.h"
#include "foundation/time/clock.h"
#include "foundation/uv/loop.h"
#include "foundation/uv/pipe_stream.h"
#include "foundation/value_map.h"
#include <benchmark/benchmark.h>
#include <sys/socket.h>

namespace {

using PipePtr = fn::AutoPtr<fn::uv::PipeStream>;

fn::ByteArray frame(const fn::Value& message)
{
    fn::ByteArray body;
    fn::ByteArrayOutputStream stream(body);
    fn::mpack::Serializer(stream).serialize(message);
    stream.flush();
    std::string bytes;
    for (int i = 0; i < 4; ++i) bytes += static_cast<char>(body.size() >> (8 * i));
    return fn::ByteArray(bytes + std::string(body.view()));
}

/// Calls back for each frame that arrives, whole or in pieces: all of them have the size of the first.
void readFrames(fn::uv::PipeStream& stream, std::size_t size, std::function<void()> onFrame)
{
    stream.readStart([size, onFrame = std::move(onFrame), missing = size](std::ptrdiff_t count, const auto*) mutable {
        if (count < 0 || static_cast<std::size_t>(count) > missing) bench::fail("read something else");
        missing -= static_cast<std::size_t>(count);
        if (missing != 0) return;
        missing = size;
        onFrame();
    });
}

void settlePromise(benchmark::State& state)
{
    fn::uv::Loop loop;
    loop.post([&] { // Promises belong to a running loop.
        std::int64_t sum = 0;
        std::int64_t rounds = 0;
        for (auto _ : state) {
            const auto promise = fn::Promise<fn::Value>::create();
            promise.then([&sum](const fn::Value& value) { sum += value.to<std::int64_t>(); });
            promise.fulfill(1);
            ++rounds;
        }
        if (sum != rounds) bench::fail("a promise was not fulfilled");
        loop.stop();
    });
    loop.run();
}
BENCHMARK(settlePromise);

/// Each task posts the next one: a turn of the loop each.
void postTask(benchmark::State& state)
{
    fn::uv::Loop loop;
    const std::function<void()> next = [&] {
        if (state.KeepRunning())
            loop.post([&] { next(); });
        else
            loop.stop();
    };
    loop.post([&] { next(); });
    loop.run();
}
BENCHMARK(postTask);

void frameOverPipe(benchmark::State& state)
{
    fn::uv::Loop loop;
    const PipePtr ends[] { fn::makeAuto<fn::uv::PipeStream>(loop), fn::makeAuto<fn::uv::PipeStream>(loop) };
    int descriptors[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, descriptors) != 0) bench::fail("no socket pair");
    for (int end : { 0, 1 }) ends[end]->open(descriptors[end]);
    const fn::ByteArray bytes(104u);
    readFrames(*ends[1], bytes.size(), [&] {
        if (state.KeepRunning())
            ends[0]->write(bytes);
        else
            loop.stop();
    });
    ends[0]->write(bytes);
    loop.run();
}
BENCHMARK(frameOverPipe);

/// As the time-out of a call that is answered.
void startAndCancelTimer(benchmark::State& state)
{
    fn::uv::Loop loop;
    loop.post([&] {
        for (auto _ : state) {
            auto timer = loop.schedule(fn::Duration::seconds(10), [] { bench::fail("a cancelled timer has fired"); });
            benchmark::DoNotOptimize(timer);
        }
        loop.stop();
    });
    loop.run();
}
BENCHMARK(startAndCancelTimer);

/// Each timer starts the next one, a millisecond later in a clock that does not wait.
void fireTimer(benchmark::State& state)
{
    fn::ManualClock clock;
    fn::uv::Loop loop(clock);
    fn::Handle timer;
    const std::function<void()> next = [&] {
        if (!state.KeepRunning()) return loop.stop();
        timer = loop.schedule(fn::Duration::milliseconds(1), next);
        clock.advance(fn::Duration::milliseconds(1));
    };
    loop.post(next);
    loop.run();
}
BENCHMARK(fireTimer);

/// A hub and two strangers to it that speak the wire; one sends the other messages for an object of his.
class Hub {
public:
    Hub()
    {
        core::AppInfo::initialize(core::AppInfo::App::Skyfold);
        _dispatcher.onReady().connect([this] { _loop.stop(); }).detach();
        _dispatcher.bind();
        _dispatcher.start();
        _loop.run();
        for (auto& stranger : _strangers) stranger = join();
    }

    void run(benchmark::State& state)
    {
        const auto message = [](ipc::WorkerId source) {
            auto fields = fn::Value::map({ { ipc::field::TYPE, ipc::type::MESSAGE },
                { ipc::field::OBJECT_ID, 0x10000 + receiver }, { ipc::field::TARGET_WORKER_ID, receiver },
                { ipc::field::PAYLOAD, fn::ByteArray(80u) }, { ipc::field::OBJECTS, fn::Value(fn::Value::MAP) } });
            if (source != ipc::NO_WORKER_ID) fields.set(ipc::field::SOURCE_WORKER_ID, source);
            return frame(fields);
        };
        const auto sent = message(ipc::NO_WORKER_ID);
        readFrames(*_strangers[1], message(sender).size(), [&] {
            if (state.KeepRunning())
                _strangers[0]->write(sent);
            else
                _loop.stop();
        });
        _strangers[0]->write(sent);
        _loop.run();
    }

private:
    static constexpr ipc::WorkerId sender = 1;
    static constexpr ipc::WorkerId receiver = 2;

    /// Connects one that says HELLO and has its answer.
    PipePtr join()
    {
        auto stream = fn::makeAuto<fn::uv::PipeStream>(_loop);
        stream->connect(_dispatcher.pipePath(), [this, stream](const fn::uv::Status& status) {
            if (!status.ok()) bench::fail("no hub");
            stream->readStart([this](std::ptrdiff_t, const auto*) { _loop.stop(); });
            stream->write(frame(fn::Value::map({ { ipc::field::TYPE, ipc::type::HELLO },
                { ipc::field::DISPLAY_NAME, "x" }, { ipc::field::TAG, "" } })));
        });
        _loop.run();
        stream->readStop();
        return stream;
    }

    fn::uv::Loop _loop;
    ipc::Dispatcher _dispatcher { _loop, fn::Duration::seconds(3600) };
    PipePtr _strangers[2];
};

void messageThroughHub(benchmark::State& state) { Hub().run(state); }
BENCHMARK(messageThroughHub);

} // namespace

BENCHMARK_MAIN();
