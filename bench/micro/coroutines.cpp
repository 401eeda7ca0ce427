// What does awaiting a promise cost beside `then()` (settlePromise in micro.cpp)?
#include "driver/driver.h"
#include "foundation/coroutine/scope.h"
#include "foundation/uv/loop.h"
#include "foundation/value.h"
#include <benchmark/benchmark.h>

namespace {

using Number = fn::Promise<fn::Value>;

void onLoop(const std::function<void()>& step)
{
    fn::uv::Loop loop;
    loop.post([&] {
        step();
        loop.stop();
    });
    loop.run();
}

fn::Promise<void> addUp(Number& next, std::int64_t& sum)
{
    for (;;) {
        next = Number::create();
        const auto value = co_await next;
        sum += value.to<std::int64_t>();
    }
}

/// One coroutine awaits a new promise each time.
void awaitPromise(benchmark::State& state)
{
    onLoop([&] {
        std::int64_t sum = 0, rounds = 0;
        Number next;
        fn::Scope scope;
        scope.start(addUp(next, sum));
        for (auto _ : state) {
            next.fulfill(1);
            ++rounds;
        }
        if (sum != rounds) bench::fail("a promise was not awaited");
    });
}
BENCHMARK(awaitPromise);

Number passOn(Number promise) { co_return co_await std::move(promise); }

/// A new coroutine for each promise: beside `then()`, which makes a node for each.
void awaitInNewCoroutine(benchmark::State& state)
{
    onLoop([&] {
        for (auto _ : state) {
            const auto promise = Number::create();
            const auto next = passOn(promise);
            promise.fulfill(1);
            if (next.isPending()) bench::fail("a promise was not awaited");
        }
    });
}
BENCHMARK(awaitInNewCoroutine);

void thenPassOn(benchmark::State& state)
{
    onLoop([&] {
        for (auto _ : state) {
            const auto promise = Number::create();
            const auto next = promise.then([](fn::Value&& value) { return std::move(value); });
            promise.fulfill(1);
            if (next.isPending()) bench::fail("a promise was not fulfilled");
        }
    });
}
BENCHMARK(thenPassOn);

Number give(std::int64_t value) { co_return value; }

fn::Promise<void> addUpChildren(benchmark::State& state)
{
    std::int64_t sum = 0, rounds = 0;
    for (auto _ : state) {
        const auto value = co_await give(1);
        sum += value.to<std::int64_t>();
        ++rounds;
    }
    if (sum != rounds) bench::fail("a coroutine was not awaited");
}

/// A coroutine that has its value when it is awaited.
void awaitChild(benchmark::State& state)
{
    onLoop([&] { addUpChildren(state).ignore(); });
}
BENCHMARK(awaitChild);

} // namespace
