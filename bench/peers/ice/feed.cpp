#include "peers/ice/feed.h"
#include "Peer.h"
#include "driver/event_load.h"
#include "peers/ice/array.h"

namespace bench::ice {
namespace {

constexpr auto endpoint = "tcp -h 127.0.0.1";

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

    void subscribe(long long index, std::shared_ptr<SubscriberPrx> subscriber, const Ice::Current&) override
    {
        _subscribers.push_back(subscriber->ice_batchOneway());
        acknowledged(index, 0);
    }

    void acknowledge(long long index, long long events, const Ice::Current&) override { acknowledged(index, events); }

private:
    void acknowledged(long long index, long long events)
    {
        _load.acknowledged(static_cast<std::uint64_t>(index), static_cast<std::uint64_t>(events));
        for (const auto& subscriber : _subscribers) subscriber->ice_flushBatchRequestsAsync(nullptr);
    }

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

} // namespace

void runPublisher(const Options& options)
{
    Ice::CommunicatorHolder communicator(settings());
    const auto adapter = communicator->createObjectAdapterWithEndpoints("bench", endpoint);
    const auto proxy = adapter->add(std::make_shared<FeedServant>(options), Ice::stringToIdentity("feed"));
    adapter->activate();
    announceReady(proxy->ice_toString());
    communicator->waitForShutdown();
}

void runSubscriber(const Options& options)
{
    Ice::CommunicatorHolder communicator(settings());
    const auto feed = Ice::checkedCast<FeedPrx>(communicator->stringToProxy(options.text("address")));
    if (!feed) fail("somebody else has answered");
    const auto adapter = communicator->createObjectAdapterWithEndpoints("bench", endpoint);
    const auto proxy =
        adapter->add(std::make_shared<SubscriberServant>(options, feed), Ice::stringToIdentity("subscriber"));
    adapter->activate();
    announceReady();
    feed->subscribe(static_cast<long long>(options.count("index")), Ice::uncheckedCast<SubscriberPrx>(proxy));
    communicator->waitForShutdown();
}

} // namespace bench::ice
