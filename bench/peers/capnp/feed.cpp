#include "peers/capnp/feed.h"
#include "driver/event_load.h"
#include "peer.capnp.h"
#include <algorithm>
#include <capnp/rpc-twoparty.h>
#include <kj/async-io.h>
#include <kj/exception.h>

namespace bench::capnproto {
namespace {

/// Lets calls go on of which nobody awaits the end; an error ends the program.
class Tasks final : kj::TaskSet::ErrorHandler {
public:
    Tasks() : _tasks(*this) { }
    void add(kj::Promise<void>&& promise) { _tasks.add(kj::mv(promise)); }

private:
    void taskFailed(kj::Exception&& exception) override { fail(exception.getDescription().cStr()); }

    kj::TaskSet _tasks;
};

class FeedServer final : public Feed::Server {
public:
    explicit FeedServer(const Options& options)
        : _load(options, [this](std::span<const std::uint8_t> body) { publish(body); })
    {
    }

protected:
    kj::Promise<void> subscribe(SubscribeContext context) override
    {
        _subscribers.push_back(context.getParams().getSubscriber());
        _load.acknowledged(context.getParams().getIndex(), 0);
        return kj::READY_NOW;
    }

    kj::Promise<void> acknowledge(AcknowledgeContext context) override
    {
        _load.acknowledged(context.getParams().getIndex(), context.getParams().getEvents());
        return kj::READY_NOW;
    }

private:
    void publish(std::span<const std::uint8_t> body)
    {
        for (auto& subscriber : _subscribers) {
            auto request = subscriber.eventRequest();
            std::ranges::copy(body, request.initBody(static_cast<unsigned>(body.size())).begin());
            _events.add(request.send());
        }
    }

    std::vector<Subscriber::Client> _subscribers;
    Tasks _events;
    EventLoad _load;
};

class SubscriberServer final : public Subscriber::Server {
public:
    explicit SubscriberServer(const Options& options) : _index(options.count("index")), _count(options) { }

    void hear(Feed::Client feed) { _feed = kj::mv(feed); }

protected:
    kj::Promise<void> event(EventContext context) override
    {
        const auto body = context.getParams().getBody();
        if (const auto events = _count.received({ body.begin(), body.size() })) acknowledge(*events);
        return kj::READY_NOW;
    }

private:
    void acknowledge(std::uint64_t events)
    {
        auto request = KJ_ASSERT_NONNULL(_feed).acknowledgeRequest();
        request.setIndex(_index);
        request.setEvents(events);
        _acknowledgements.add(request.send().ignoreResult());
    }

    const std::uint64_t _index;
    EventCount _count;
    kj::Maybe<Feed::Client> _feed;
    Tasks _acknowledgements;
};

} // namespace

void runPublisher(const Options& options)
{
    auto io = kj::setupAsyncIo();
    const auto address = "unix:" + options.text("directory") + "/capnp";
    auto listener = io.provider->getNetwork().parseAddress(address.c_str()).wait(io.waitScope)->listen();
    capnp::TwoPartyServer server(kj::heap<FeedServer>(options));
    announceReady(address);
    server.listen(*listener).wait(io.waitScope);
}

void runSubscriber(const Options& options)
{
    auto io = kj::setupAsyncIo();
    auto address = io.provider->getNetwork().parseAddress(options.text("address").c_str()).wait(io.waitScope);
    auto stream = address->connect().wait(io.waitScope);
    capnp::TwoPartyClient client(*stream);
    auto feed = client.bootstrap().castAs<Feed>();
    auto server = kj::heap<SubscriberServer>(options);
    server->hear(feed);
    auto request = feed.subscribeRequest();
    request.setIndex(options.count("index"));
    request.setSubscriber(kj::mv(server));
    announceReady();
    request.send().wait(io.waitScope);
    kj::NEVER_DONE.wait(io.waitScope);
}

} // namespace bench::capnproto
