// What do the pieces of a call cost by themselves? For finding out which one a slower call is due to.
#include "driver/driver.h"
#include "foundation/io/memory_input_stream.h"
#include "foundation/mpack/deserializer.h"
#include "foundation/promise.h"
#include "foundation/uv/loop.h"
#include "foundation/value.h"
#include "foundation/value_map.h"
#include "micro/encoded.h"
#include <benchmark/benchmark.h>
#include <functional>

using bench::encoded;

namespace {

/// A message as it travels for a small call: five fields with integer keys, a payload of bytes, a map without entries.
fn::Value message()
{
    return fn::Value::map(
        { { 1, 4 }, { 5, 0x30002 }, { 7, 2 }, { 8, fn::ByteArray(80u) }, { 9, fn::Value(fn::Value::MAP) } });
}

void copyMessage(benchmark::State& state)
{
    const auto value = message();
    for (auto _ : state) {
        fn::Value copy(value);
        benchmark::DoNotOptimize(copy);
    }
}
BENCHMARK(copyMessage);

void makeMessage(benchmark::State& state)
{
    for (auto _ : state) {
        auto value = message();
        benchmark::DoNotOptimize(value);
    }
}
BENCHMARK(makeMessage);

void encodeMessage(benchmark::State& state)
{
    const auto value = message();
    const auto size = encoded(value).size();
    for (auto _ : state) {
        if (encoded(value).size() != size) bench::fail("encoded differently");
    }
}
BENCHMARK(encodeMessage);

void decodeMessage(benchmark::State& state)
{
    const auto bytes = encoded(message());
    for (auto _ : state) {
        fn::MemoryInputStream stream(bytes);
        const auto value = fn::mpack::Deserializer(stream).deserialize();
        if (!value || value->size() != 5) bench::fail("decoded differently");
    }
}
BENCHMARK(decodeMessage);

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

} // namespace

BENCHMARK_MAIN();
