// Our side: what a developer would write for these jobs, against the public interface.
#include "core/ipc/object/callable_object_instance.h"
#include "core/ipc/object/callable_object_reference.h"
#include "driver/call_load.h"
#include "driver/event_load.h"
#include "driver/roles.h"
#include "ours/logger.h"
#include "ours/participant.h"
#include "ours/record.h"
#include "ours/typed.h"

namespace bench::ours { // Not unnamed: the names of reference classes travel on the wire.

fn::Value valueOf(const Record& record)
{
    return fn::Value::map({ { "number", record.number }, { "check", record.check }, { "name", record.name },
        { "width", record.width }, { "height", record.height }, { "scale", record.scale } });
}

Record recordIn(const fn::Value& value)
{
    return { value.at("number").to<std::uint64_t>(), value.at("check").to<std::uint64_t>(), value.at("name").asString(),
        value.at("width").to<std::uint32_t>(), value.at("height").to<std::uint32_t>(), value.at("scale").toDouble() };
}

class EchoReference final : public ipc::CallableObjectReference {
public:
    using CallableObjectReference::CallableObjectReference;
};

class Echo final : public ipc::CallableObjectInstance {
public:
    Echo(ipc::Worker& worker, const Options& options)
        : CallableObjectInstance(worker),
          _resultBytes(options.count("result_bytes"))
    {
    }

protected:
    fn::AutoPtr<ipc::ObjectReference> createReference(ipc::ObjectReferenceInitializer& initializer) override
    {
        return fn::makeAuto<EchoReference>(initializer);
    }

    void onMethodCall(const CallContext& context, const fn::String& name, const fn::Value& argument) override
    {
        if (name == "echoRecord")
            sendResult(context, valueOf(recordOf(answerTo(numberOf(recordIn(argument))))));
        else
            sendResult(context, stamped(answerTo(readStamp(argument.byteArray().bytes())), _resultBytes));
    }

private:
    const std::size_t _resultBytes;
};

class FeedReference final : public ipc::CallableObjectReference {
public:
    using CallableObjectReference::CallableObjectReference;
    std::function<void(const fn::Value& body)> heard;

protected:
    void onEvent(const fn::String&, const fn::Value& body) override { heard(body); }
};

class Feed final : public ipc::CallableObjectInstance {
public:
    Feed(ipc::Worker& worker, const Options& options)
        : CallableObjectInstance(worker),
          _load(options, [this](std::span<const std::uint8_t> body) {
              broadcastEvent("event", fn::ByteArray(body.data(), body.size()));
          })
    {
    }

protected:
    fn::AutoPtr<ipc::ObjectReference> createReference(ipc::ObjectReferenceInitializer& initializer) override
    {
        return fn::makeAuto<FeedReference>(initializer);
    }

    void onMethodCall(const CallContext& context, const fn::String&, const fn::Value& argument) override
    {
        sendResult(context, {});
        _load.acknowledged(argument.at("index").to<std::uint64_t>(), argument.at("events").to<std::uint64_t>());
    }

private:
    EventLoad _load;
};

/// Puts a load of calls on an Echo, near or far.
class Caller {
public:
    explicit Caller(const Options& options)
        : _argumentBytes(options.count("argument_bytes")),
          _sendsRecords(options.count("records") != 0),
          _load(options, [this](std::uint64_t number) { call(number); })
    {
    }

    void start(const fn::AutoPtr<ipc::CallableObjectReference>& echo)
    {
        if (!echo) fail("the registry has given another class");
        _echo = echo;
        _load.start();
    }

private:
    void call(std::uint64_t number)
    {
        const auto promise = _sendsRecords ? _echo->callMethod("echoRecord", valueOf(recordOf(number)))
                                           : _echo->callMethod("echo", stamped(number, _argumentBytes));
        promise.then(
            [this, number](const fn::Value& result) {
                const auto answer = _sendsRecords ? numberOf(recordIn(result)) : readStamp(result.byteArray().bytes());
                if (answer != answerTo(number)) fail("a wrong result arrived");
                _load.answered(number);
            },
            failing("call"));
    }

    const std::size_t _argumentBytes;
    const bool _sendsRecords;
    CallLoad _load;
    fn::AutoPtr<ipc::CallableObjectReference> _echo;
};

void runIdle(const Options& options)
{
    Participant participant(options);
    participant.run([] { announceReady(); });
}

void runOwner(const Options& options)
{
    Participant owner(options);
    owner.run([&] { owner.publish(fn::makeAuto<Echo>(owner.worker(), options)); });
}

void runCaller(const Options& options)
{
    Participant participant(options);
    Caller caller(options);
    participant.run([&] {
        participant.find<EchoReference>([&](const fn::AutoPtr<EchoReference>& echo) {
            announceReady();
            caller.start(echo);
        });
    });
}

void runLocal(const Options& options)
{
    Participant participant(options);
    Caller caller(options);
    participant.run([&] {
        announceReady();
        caller.start(
            fn::dynamicCast<EchoReference>(fn::makeAuto<Echo>(participant.worker(), options)->localReference()));
    });
}

void runPublisher(const Options& options)
{
    Participant publisher(options);
    publisher.run([&] { publisher.publish(fn::makeAuto<Feed>(publisher.worker(), options)); });
}

void runSubscriber(const Options& options)
{
    Participant subscriber(options);
    EventCount count(options);
    const auto index = options.count("index");
    subscriber.run([&] {
        subscriber.find<FeedReference>([&](const fn::AutoPtr<FeedReference>& feed) {
            if (!feed) fail("the registry has given another class");
            // The reference holds itself through this; it is used as long as the process lives.
            const auto acknowledge = [feed, index](std::uint64_t events) {
                feed->callMethod("acknowledge", fn::Value::map({ { "index", index }, { "events", events } }))
                    .then([](const fn::Value&) {}, failing("acknowledge"));
            };
            feed->heard = [&count, acknowledge](const fn::Value& body) {
                if (const auto events = count.received(body.byteArray().bytes())) acknowledge(*events);
            };
            announceReady();
            acknowledge(0);
        });
    });
}

} // namespace bench::ours

int main(int argc, char** argv)
{
    using namespace bench::ours;
    const bench::Options options(argc, argv);
    if (options.count("typed") != 0) bench::play(options, typedRoles());
    bench::play(options,
        { { "idle", runIdle }, { "owner", runOwner }, { "caller", runCaller }, { "local", runLocal },
            { "logger", runLogger }, { "publisher", runPublisher }, { "subscriber", runSubscriber } });
}
