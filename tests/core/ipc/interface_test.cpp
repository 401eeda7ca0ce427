// Typed interfaces between two workers, and beside untyped peers. What can break here: a type that does not come back as it went,
// an error that does not say what was wrong, a property of which a change is lost or told twice, a call that outlives its service.
#include "core/ipc/interface/remote.h"
#include "core/ipc/interface/service.h"
#include "core/ipc/object/tracing.h"
#include "core/services/fraction.h"
#include "foundation/coroutine/on_pool.h"
#include "foundation/io/byte_array_output_stream.h"
#include "hub_fixture.h"
#include <gmock/gmock.h>

namespace typed {

enum class Colour { red, green };
FN_ENUM(Colour, red, green)

struct Box {
    std::uint32_t width = 0;
    std::uint32_t height = 7;
    std::optional<fn::String> label;
    std::vector<Colour> colours;
    friend bool operator==(const Box&, const Box&) = default;
};
FN_FIELDS(Box, width, height, label, colours)

struct Point {
    int x = 0;
    fn::String name;
    friend bool operator==(const Point&, const Point&) = default;
};
FN_FIELDS(Point, x, name)

struct Tree {
    fn::String name;
    std::vector<Tree> branches;
};
FN_FIELDS(Tree, name, branches)

struct Counter : ipc::Interface<Counter> {
    ipc::Method<std::int64_t(std::int64_t)> add;
    ipc::Property<std::int64_t> total;
    IPC_MEMBERS(add, total)
};

struct Desk : ipc::Interface<Desk> {
    ipc::Method<fn::String(fn::String)> greet;
    ipc::Method<Box(Box, int)> grow;
    ipc::Method<void()> nothing;
    ipc::Method<fn::String(fn::String)> later;
    ipc::Method<fn::String(fn::String), ipc::Repeatable> laterOrAgain;
    ipc::Method<fn::String(fn::String)> ask;
    ipc::Method<ipc::Ref<Counter>(ipc::Ref<Counter>)> lend;
    ipc::Event<fn::String, int> greeted;
    ipc::Property<std::vector<fn::String>> names;
    IPC_MEMBERS(greet, grow, nothing, later, laterOrAgain, ask, lend, greeted, names)
};

/// What somebody takes a Desk for.
struct OtherDesk : ipc::Interface<OtherDesk> {
    static constexpr const char* className = "typed::Desk";
    ipc::Method<int(fn::String)> greet;
    IPC_MEMBERS(greet)
};

class CounterService final : public ipc::Service<CounterService, Counter> {
public:
    using Service::Service;
    std::int64_t add(std::int64_t by)
    {
        shared.total = *shared.total + by;
        return *shared.total;
    }
};

class DeskService final : public ipc::Service<DeskService, Desk> {
public:
    using Service::Service;

    fn::String greet(const fn::String& name)
    {
        context = fn::WorkContext::current();
        shared.greeted(name, 3);
        return "Hello, " + name;
    }
    Box grow(Box box, int by)
    {
        if (by == 0) throw fn::RangeException("by nothing");
        box.width += static_cast<std::uint32_t>(by);
        return box;
    }
    void nothing() { }
    fn::Promise<fn::String> later(fn::String name)
    {
        const Ended ended { *this };
        context = fn::WorkContext::current();
        pending.push_back(fn::Promise<void>::create());
        co_await fn::Promise(pending.back());
        co_return "later " + name;
    }
    fn::Promise<fn::String> ask(fn::String name) { co_return co_await asked->later(name); }
    fn::Promise<fn::String> laterOrAgain(fn::String name) { return later(std::move(name)); }
    ipc::Ref<Counter> lend(const ipc::Ref<Counter>& counter)
    {
        if (counter) return counter;
        return fn::makeAuto<CounterService>(worker());
    }

    struct Ended {
        DeskService& desk;
        ~Ended() { ++desk.endedCalls; }
    };
    std::vector<fn::Promise<void>> pending;
    ipc::Ref<Desk> asked;
    fn::WorkContext context; // Of the latest call.
    int endedCalls = 0;
};

/// Who has one in its own worker has a typed reference to an untyped object.
class PlainDesk final : public ipc::CallableObjectInstance {
public:
    using CallableObjectInstance::CallableObjectInstance;
    fn::AutoPtr<ipc::ObjectReference> createReference(ipc::ObjectReferenceInitializer& initializer) override
    {
        return fn::makeAuto<ipc::Reference<Desk>>(initializer);
    }
    void onMethodCall(const CallContext& context, const fn::String& name, const fn::Value& argument) override
    {
        sendResult(context, name + " " + argument.toString());
    }
};

/// ... and of this one an untyped reference to a typed object.
class PlainlyUsedCounter final : public ipc::Service<PlainlyUsedCounter, Counter> {
public:
    using Service::Service;
    std::int64_t add(std::int64_t by) { return by + 1; }
    fn::AutoPtr<ipc::ObjectReference> createReference(ipc::ObjectReferenceInitializer& initializer) override
    {
        return fn::makeAuto<ipc::CallableObjectReference>(initializer);
    }
};

} // namespace typed

template <> struct ipc::Codec<typed::Point> : ipc::ArrayOfFields<typed::Point> {
};

namespace {

using namespace test;
using namespace typed;
using Names = std::vector<fn::String>;

class InterfaceTest : public HubTest {
protected:
    template <typename T> static auto take(const fn::Promise<T>& promise)
    {
        return fn::internal::PromiseAccess::node(promise)->take();
    }

    template <typename Call> auto result(Call call)
    {
        decltype(call()) promise;
        loop.post([&] { promise = call(); });
        settle();
        return take(promise);
    }
    template <typename Call> fn::String failure(Call call)
    {
        try {
            static_cast<void>(result(std::move(call)));
            return "none";
        } catch (const fn::Exception& exception) {
            return exception.className() + ": " + exception.message();
        }
    }

    std::unique_ptr<Client> owner = client("Owner");
    std::unique_ptr<Client> user = client("User");
    fn::AutoPtr<DeskService> service = fn::makeAuto<DeskService>(*owner->worker);
    ipc::Ref<Desk> local { service };
    ipc::Ref<Desk> remote;

    void SetUp() override
    {
        loop.post([&] { owner->worker->registry()->registerObject(service, 0).ignore(); });
        settle();
        const auto find = [&] {
            return user->worker->registry()->getInstance<ipc::Reference<Desk>>(fn::Duration::seconds(1));
        };
        remote = ipc::Ref<Desk>(result(find));
    }
};

} // namespace

TEST_F(InterfaceTest, CallsAndEventsTakeTheTypesTheyDeclare)
{
    for (const auto& desk : { remote, local }) {
        fn::String heard;
        const auto hearing =
            desk->greeted.connect([&](const fn::String& name, int n) { heard = name + fn::String::number(n); });
        EXPECT_EQ(result([&] { return desk->greet("Ada"); }), "Hello, Ada");
        EXPECT_EQ(heard, "Ada3");
        Box box { 1, 2, "label", { Colour::red, Colour::green } };
        const Box grown = result([&] { return desk->grow(box, 4); });
        box.width = 5;
        EXPECT_EQ(grown, box);
        EXPECT_EQ(failure([&] { return desk->grow(box, 0); }), "RangeException: by nothing");
        result([&] { return desk->nothing(); });
    }
}

TEST_F(InterfaceTest, EachTypeTravelsAsItsFormAndComesBack)
{
    auto& host = owner->worker->objectHost();
    const auto encode = [&]<typename T>(const T& value) {
        ipc::EncodedPayload bytes;
        fn::ByteArrayOutputStream stream(bytes.bytes);
        ipc::PayloadWriter writer(stream, host);
        ipc::Codec<T>::write(writer, value);
        stream.flush();
        return bytes;
    };
    const auto expect = [&]<typename T>(const T& value, const Value& form) {
        const auto bytes = encode(value);
        EXPECT_EQ(ipc::PayloadReader(host, bytes).readAll(), form);
        ipc::PayloadReader reader(host, bytes);
        T back {};
        ipc::Codec<T>::read(reader, back);
        EXPECT_TRUE(back == value) << ipc::Codec<T>::type() << " " << form;
        for (std::size_t size = 0; size < bytes.bytes.size(); ++size) {
            const ipc::EncodedPayload cut { bytes.bytes.slice(0, size), {} };
            ipc::PayloadReader cutReader(host, cut);
            EXPECT_ANY_THROW(ipc::Codec<T>::read(cutReader, back)) << ipc::Codec<T>::type();
        }
    };
    expect(std::int8_t(-128), -128);
    expect(std::uint64_t(UINT64_MAX), UINT64_MAX);
    expect(std::int64_t(INT64_MIN), INT64_MIN);
    expect(std::uint16_t(65535), 65535);
    expect(true, true);
    expect(-2.5, -2.5);
    expect(0.5f, 0.5);
    expect(fn::String(std::string(300, 'x')), std::string(300, 'x'));
    expect(std::string("text"), "text");
    expect(fn::ByteArray("bytes"), fn::ByteArray("bytes"));
    expect(std::optional<int>(), {});
    expect(std::optional<int>(3), 3);
    expect(std::vector<std::optional<int>> { 1, {} }, Value::array({ 1, {} }));
    expect(std::array<int, 2> { 1, 2 }, Value::array({ 1, 2 }));
    expect(std::map<int, fn::String> { { 1, "a" } }, Value::map({ { 1, "a" } }));
    expect(std::set<int> { 2, 1 }, Value::array({ 1, 2 }));
    expect(std::pair(1, fn::String("b")), Value::array({ 1, "b" }));
    expect(std::tuple(1, true, 2.0), Value::array({ 1, true, 2.0 }));
    expect(std::variant<int, fn::String>("b"), Value::array({ 1, "b" }));
    expect(Point { 1, "b" }, Value::array({ 1, "b" }));
    expect(fn::Duration::seconds(2), 2'000'000);
    expect(std::chrono::milliseconds(-3), -3'000);
    expect(fn::Timestamp(1'000'001), fn::Timestamp(1'000'001));
    expect(Colour::green, "green");
    expect(std::chrono::hours(-1), std::int64_t(-3'600'000'000));
    EXPECT_EQ(ipc::Codec<Tree>::type(), "Tree { name: text; branches: list<Tree>; }");
    const auto tooLong = std::chrono::hours::max(); // Sent as the longest duration, which no nanoseconds hold.
    ipc::EncodedPayload bytes;
    fn::ByteArrayOutputStream stream(bytes.bytes);
    ipc::PayloadWriter writer(stream, host);
    ipc::Codec<std::chrono::hours>::write(writer, tooLong);
    stream.flush();
    ipc::PayloadReader reader(host, bytes);
    std::chrono::nanoseconds back;
    EXPECT_ANY_THROW(ipc::Codec<std::chrono::nanoseconds>::read(reader, back));
    expect(Value::map({ { "any", core::Fraction(1, 3) } }), Value::map({ { "any", core::Fraction(1, 3) } }));
    Point grown; // Of a peer that knows more fields of it, and of one that knows fewer.
    for (const auto& form : { Value::array({ 1, "b", Value::array({ 2 }) }), Value::array({ 3 }) }) {
        const auto bytes = encode(form);
        ipc::PayloadReader reader(host, bytes);
        ipc::Codec<Point>::read(reader, grown);
        EXPECT_EQ(reader.offset(), bytes.bytes.size());
    }
    EXPECT_EQ(grown, (Point { 3, "b" }));
}

TEST_F(InterfaceTest, ObjectsGoBothWaysAndAreOfOneThread)
{
    const auto lent = result([&] { return remote->lend(ipc::Ref<Counter>()); });
    EXPECT_EQ(result([&] { return lent->add(3); }), 3);
    const auto back = result([&] { return remote->lend(lent); });
    EXPECT_EQ(back, lent);
    const auto mine = fn::makeAuto<CounterService>(*user->worker);
    const auto round = result([&] { return remote->lend(mine); });
    EXPECT_EQ(round, ipc::Ref<Counter>(mine));
    EXPECT_EQ(result([&] { return round->add(8); }), 8);
    const auto foreign = fn::makeAuto<CounterService>(*owner->worker);
    EXPECT_EQ(failure([&] { return remote->lend(foreign); }),
        "RuntimeException: An object of worker 1 (Owner) can not be sent by worker 2 (User)");
    bool isOver = false;
    const auto call = [&] { EXPECT_THROW((void)remote->lend(lent), fn::RuntimeException); };
    loop.post([&] { fn::onPool(call).then([&] { isOver = true; }); }); // On a thread of the pool.
    EXPECT_TRUE(test::runUntil(loop, [&] { return isOver; }));
}

TEST_F(InterfaceTest, APropertyIsToldToEachWatcherOnceForEachValue)
{
    for (const auto& desk : { remote, local }) {
        std::vector<std::size_t> first;
        std::vector<std::size_t> late;
        service->shared.names = Names { "a" };
        fn::Handle watching[2];
        loop.post([&] { watching[0] = desk->names.watch([&](const auto& names) { first.push_back(names.size()); }); });
        loop.post([&] { service->shared.names = Names { "a", "b" }; }); // Between the question and its answer.
        settle();
        loop.post([&] { watching[1] = desk->names.watch([&](const auto& names) { late.push_back(names.size()); }); });
        settle();
        service->shared.names = Names { "a", "b", "c" };
        service->shared.names = Names { "a", "b", "c" };
        service->shared.names = Names {};
        settle();
        EXPECT_THAT(first, testing::ElementsAre(2, 3, 0));
        EXPECT_THAT(late, testing::ElementsAre(2, 3, 0));
        service->shared.names = Names { "x" };
        EXPECT_THAT(result([&] { return desk->names.get(); }), testing::ElementsAre("x"));
    }
}

TEST_F(InterfaceTest, UntypedPeersSayAndHearTheSame)
{
    const auto call = [&](const char* name, const Value& argument) {
        return outcome([&] { return remote.reference()->callMethod(name, argument); });
    };
    const auto box = Value::map({ { "width", 2 }, { "unknown", 1 }, { "colours", Value::array({ "green" }) } });
    const auto grown = call("grow", Value::array({ box, 1 })).value();
    EXPECT_EQ(grown,
        Value::map({ { "width", 3 }, { "height", 7 }, { "label", {} }, { "colours", Value::array({ "green" }) } }));
    const auto localCall = [&](const char* name, const Value& argument) {
        return outcome([&] { return local.reference()->callMethod(name, argument); });
    };
    EXPECT_EQ(localCall("greet", "Bo").value(), "Hello, Bo");
    const auto plain = fn::makeAuto<PlainDesk>(*owner->worker)->localReference();
    EXPECT_EQ(
        result([&] { return ipc::Ref<Desk>(fn::dynamicCast<ipc::Reference<Desk>>(plain))->greet("Bo"); }), "greet Bo");
    const auto used = fn::makeAuto<PlainlyUsedCounter>(*owner->worker)->localReference();
    const auto counter = fn::dynamicCast<ipc::CallableObjectReference>(used);
    EXPECT_EQ(outcome([&] { return counter->callMethod("add", 2); }).value(), Value(3));
    EXPECT_EQ(call("names", {}).value(), Value(Value::ARRAY));
    EXPECT_EQ(call("nope", {}).error(), "RuntimeException: typed::Desk has no method nope");
    const auto description = call("ipc.describe", {}).value();
    EXPECT_EQ(*description.valueForPathIfExists("methods.grow.result"),
        "Box { width: uint32; height: uint32; label: optional<text>; colours: list<Colour { red | green }>; }");

    auto later = Value::map({ { "TYPE", "CALL" }, { "METHOD_NAME", "later" }, { "ARGUMENT", "x" } });
    for (const auto& number : { Value(), Value(9), Value(9), Value() }) {
        if (!number.isNil()) later.set("REQUEST_ID", number);
        if (number.isNil()) later.remove("REQUEST_ID");
        remote.reference()->sendMessage(later);
    }
    settle();
    EXPECT_EQ(service->pending.size(), 4u);
    EXPECT_EQ(service->endedCalls, 1); // Number 9 means the second one.

    const std::pair<Value, const char*> rows[] {
        { "x", "typed::Desk.grow: expected an array, got x" },
        { Value::array({ box, "x" }), "typed::Desk.grow, argument 2: expected an integer of 32 bits, got x" },
        { Value::array({ Value::map({ { "width", -1 } }), 1 }),
            "typed::Desk.grow, argument 1, field width: expected an unsigned integer of 32 bits, got -1" },
        { Value::array({ Value::map({ { "colours", Value::array({ "red", "blue" }) } }), 1 }),
            "typed::Desk.grow, argument 1, field colours, element 1: expected a name of Colour (red | green), got "
            "blue" },
    };
    for (const auto& [argument, error] : rows) {
        EXPECT_EQ(call("grow", argument).error(), "DataFormatException: " + fn::String(error));
        EXPECT_EQ(localCall("grow", argument).error(), "DataFormatException: " + fn::String(error));
    }
    const auto third = client("Third");
    ipc::Remote<OtherDesk> other(*third->worker);
    EXPECT_EQ(failure([&] { return other->greet("Bo"); }),
        "DataFormatException: typed::Desk.greet, result: expected an integer of 32 bits, got Hello, Bo");
}

TEST_F(InterfaceTest, ACallEndsWithWhoWaitsForIt)
{
    fn::Promise<fn::String> calls[3];
    loop.post([&] {
        for (auto& call : calls) call = remote->later("x");
    });
    settle();
    calls[0].cancel();
    settle();
    EXPECT_EQ(service->endedCalls, 1);
    for (const auto& pending : service->pending) pending.fulfill();
    settle();
    EXPECT_EQ(take(calls[1]), "later x");
    EXPECT_EQ(take(calls[2]), "later x");

    fn::Promise<fn::String> late;
    loop.post([&] { late = remote->later.within(fn::Duration::seconds(2))("x"); });
    settle();
    pass(fn::Duration::seconds(3));
    EXPECT_EQ(service->endedCalls, 4);
    EXPECT_EQ(
        failure([&] { return late; }), "OperationTimedOutException: typed::Desk.later has not answered within 2 s");
}

TEST_F(InterfaceTest, WhatIsLeftOfTheTimeAndTheTraceGoWithTheCall)
{
    // A desk that asks another one, in another worker.
    const auto other = client("Other");
    const auto second = fn::makeAuto<DeskService>(*other->worker);
    loop.post([&] { other->worker->registry()->registerObject(second, 1).ignore(); });
    settle();
    const auto find = [&] { return ipc::find<Desk>(*owner->worker, fn::Duration::seconds(1)); };
    service->asked = result(find);

    fn::Promise<fn::String> call;
    loop.post([&] {
        const fn::ScopedContext work(fn::WorkContext().withTrace(77));
        call = remote->ask.within(std::chrono::seconds(5))("x");
    });
    settle();
    EXPECT_EQ(second->context.traceId(), 77u);
    std::optional<fn::Duration> left;
    loop.post([&] { left = second->context.remainingTime(); });
    settle();
    EXPECT_EQ(left, fn::Duration::seconds(5));
    pass(fn::Duration::seconds(6));
    EXPECT_EQ(failure([&] { return call; }), "OperationTimedOutException: typed::Desk.ask has not answered within 5 s");
    EXPECT_EQ(second->endedCalls, 1);
    EXPECT_EQ(result([&] { return remote->greet("Ada"); }), "Hello, Ada");
    EXPECT_EQ(service->context.traceId(), 0u);
    ipc::setCallTracing(true);
    EXPECT_EQ(result([&] { return remote->greet("Ada"); }), "Hello, Ada");
    ipc::setCallTracing(false);
    EXPECT_NE(service->context.traceId(), 0u);
    service->asked = {};
}

TEST_F(InterfaceTest, ARemoteFindsTheNextObjectOfItsClass)
{
    ipc::Remote<Desk> desk(*user->worker);
    int came = 0;
    int gone = 0;
    std::vector<std::size_t> names;
    const auto coming = desk.onCame().connect([&] { ++came; });
    const auto going = desk.onGone().connect([&] { ++gone; });
    fn::Handle watching;
    service->shared.names = Names { "a" };
    fn::Promise<fn::String> once;
    fn::Promise<fn::String> again;
    loop.post([&] {
        once = desk->later("once");
        again = desk->laterOrAgain("again");
        watching = desk->names.watch([&](const auto& all) { names.push_back(all.size()); });
    });
    settle();
    EXPECT_EQ(came, 1);
    service.reset();
    local = {};
    owner->worker->stop();
    settle();
    EXPECT_EQ(gone, 1);
    EXPECT_EQ(failure([&] { return once; }), "ObjectDeadException: typed::Desk.later: the object's worker has gone");
    EXPECT_TRUE(again.isPending());

    fn::Promise<fn::String> waits;
    fn::Promise<fn::String> waitsTooLong;
    loop.post([&] {
        waits = desk->greet("Bo");
        waitsTooLong = desk->greet.within(fn::Duration::seconds(1))("Bo");
    });
    settle();
    pass(fn::Duration::seconds(2));
    EXPECT_EQ(failure([&] { return waitsTooLong; }),
        "OperationTimedOutException: typed::Desk.greet: no object of class typed::Desk was there within 1 s");
    const auto next = client("Next");
    const auto successor = fn::makeAuto<DeskService>(*next->worker);
    successor->shared.names = Names { "a", "b" };
    loop.post([&] { next->worker->registry()->registerObject(successor, 0).ignore(); });
    settle();
    EXPECT_EQ(came, 2);
    EXPECT_EQ(take(waits), "Hello, Bo");
    for (const auto& pending : successor->pending) pending.fulfill();
    settle();
    EXPECT_EQ(take(again), "later again");
    EXPECT_THAT(names, testing::ElementsAre(1, 2));
}
