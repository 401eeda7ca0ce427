// ZeroC Ice from process to process. It knows no Unix sockets: TCP on the loopback. Each end has one thread for its calls,
// which is its default.
#include "Peer.h"
#include "driver/call_load.h"
#include "driver/event_load.h"
#include "driver/roles.h"
#include "driver/stamp.h"
#include <Ice/Ice.h>
#include <mutex>

namespace bench::ice {
namespace {

/// Bytes that are not copied on the way into a request or out of it.
using Array = std::pair<const Ice::Byte*, const Ice::Byte*>;

std::span<const std::uint8_t> bytes(const Array& array) { return { array.first, array.second }; }
Array array(std::span<const std::uint8_t> bytes) { return { bytes.data(), bytes.data() + bytes.size() }; }

/// A process, which serves an object and uses one.
class Participant {
public:
    Participant() : _communicator(settings()) { }

    std::shared_ptr<Ice::ObjectPrx> serve(const std::shared_ptr<Ice::Object>& object)
    {
        const auto adapter = _communicator->createObjectAdapterWithEndpoints("bench", "tcp -h 127.0.0.1");
        auto proxy = adapter->add(object, Ice::stringToIdentity("object"));
        adapter->activate();
        return proxy;
    }

    template <typename Proxy> std::shared_ptr<Proxy> find(const Options& options)
    {
        auto found = Ice::checkedCast<Proxy>(_communicator->stringToProxy(options.text("address")));
        if (!found) fail("somebody else has answered");
        return found;
    }

    void run() { _communicator->waitForShutdown(); }

private:
    static Ice::InitializationData settings()
    {
        Ice::InitializationData data;
        data.properties = Ice::createProperties();
        data.properties->setProperty(
            "Ice.MessageSizeMax", "16384"); // KiB; the default stops short of 1 MiB and a header.
        return data;
    }

    Ice::CommunicatorHolder _communicator;
};

void serve(const std::shared_ptr<Ice::Object>& object)
{
    Participant participant;
    announceReady(participant.serve(object)->ice_toString());
    participant.run();
}

class EchoServant final : public Echo {
public:
    explicit EchoServant(std::size_t resultBytes) : _result(resultBytes) { }

    /// Called in the only thread of the server, so that one result serves all calls.
    void answerAsync(Array argument, std::function<void(const Array&)> onResult,
        std::function<void(std::exception_ptr)>, const Ice::Current&) override
    {
        stamp(_result, answerTo(readStamp(bytes(argument))));
        onResult(array(_result));
    }

private:
    std::vector<std::uint8_t> _result;
};

void runIdle(const Options&) { serve(std::make_shared<EchoServant>(stampBytes)); }
void runOwner(const Options& options) { serve(std::make_shared<EchoServant>(options.count("result_bytes"))); }

class Caller {
public:
    explicit Caller(const Options& options)
        : _echo(_participant.find<EchoPrx>(options)),
          _argument(options.count("argument_bytes")),
          _load(options, [this](std::uint64_t number) { call(number); })
    {
    }

    void run()
    {
        announceReady();
        {
            const std::lock_guard guard(_lock);
            _load.start();
        }
        _participant.run();
    }

private:
    void call(std::uint64_t number)
    {
        stamp(_argument, number); // Encoded before the call returns.
        _echo->answerAsync(
            array(_argument),
            [this](const Array& result) {
                const std::lock_guard guard(_lock); // Only the first calls are sent by another thread.
                _load.answered(answerTo(readStamp(bytes(result))));
            },
            [](std::exception_ptr exception) { failWith("call", exception); });
    }

    Participant _participant;
    const std::shared_ptr<EchoPrx> _echo;
    std::vector<std::uint8_t> _argument;
    std::mutex _lock;
    CallLoad _load;
};

void runCaller(const Options& options) { Caller(options).run(); }

/// Called in the only thread of the server. Events are collected for each subscriber and go out together, as calls without
/// an answer.
class FeedServant final : public Feed {
public:
    explicit FeedServant(const Options& options)
        : _load(options, [this](std::span<const std::uint8_t> body) {
              for (const auto& subscriber : _subscribers) subscriber->event(array(body));
          })
    {
    }

    void subscribe(long long index, std::shared_ptr<SubscriberPrx> subscriber, const Ice::Current& current) override
    {
        _subscribers.push_back(subscriber->ice_batchOneway());
        acknowledge(index, 0, current);
    }

    void acknowledge(long long index, long long events, const Ice::Current&) override
    {
        _load.acknowledged(static_cast<std::uint64_t>(index), static_cast<std::uint64_t>(events));
        for (const auto& subscriber : _subscribers) subscriber->ice_flushBatchRequestsAsync(nullptr);
    }

private:
    std::vector<std::shared_ptr<SubscriberPrx>> _subscribers;
    EventLoad _load;
};

class SubscriberServant final : public Subscriber {
public:
    SubscriberServant(const Options& options, const std::shared_ptr<FeedPrx>& feed)
        : _feed(feed->ice_oneway()),
          _index(static_cast<long long>(options.count("index"))),
          _count(options)
    {
    }

    void event(Array body, const Ice::Current&) override
    {
        if (const auto events = _count.received(bytes(body)))
            _feed->acknowledgeAsync(_index, static_cast<long long>(*events), nullptr);
    }

private:
    const std::shared_ptr<FeedPrx> _feed;
    const long long _index;
    EventCount _count;
};

void runPublisher(const Options& options) { serve(std::make_shared<FeedServant>(options)); }

void runSubscriber(const Options& options)
{
    Participant participant;
    const auto feed = participant.find<FeedPrx>(options);
    const auto proxy = participant.serve(std::make_shared<SubscriberServant>(options, feed));
    announceReady();
    feed->subscribe(static_cast<long long>(options.count("index")), Ice::uncheckedCast<SubscriberPrx>(proxy));
    participant.run();
}

} // namespace
} // namespace bench::ice

int main(int argc, char** argv)
{
    using namespace bench::ice;
    bench::play(bench::Options(argc, argv),
        { { "idle", runIdle }, { "owner", runOwner }, { "caller", runCaller }, { "publisher", runPublisher },
            { "subscriber", runSubscriber } });
}
