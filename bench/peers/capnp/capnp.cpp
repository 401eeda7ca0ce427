// Cap'n Proto's RPC from process to process over a Unix socket, both ends on its own event loop.
#include "driver/call_load.h"
#include "driver/event_load.h"
#include "driver/roles.h"
#include "driver/stamp.h"
#include "peer.capnp.h"
#include <algorithm>
#include <capnp/rpc-twoparty.h>
#include <kj/async-io.h>
#include <kj/exception.h>

namespace bench::capnproto {
namespace {

std::span<const std::uint8_t> bytes(capnp::Data::Reader data) { return { data.begin(), data.size() }; }
std::span<std::uint8_t> bytes(capnp::Data::Builder data) { return { data.begin(), data.size() }; }

/// Lets calls go on of which nobody awaits the end; an error ends the program.
class Tasks final : kj::TaskSet::ErrorHandler {
public:
    Tasks() : _tasks(*this) { }
    void add(kj::Promise<void>&& promise) { _tasks.add(kj::mv(promise)); }

private:
    void taskFailed(kj::Exception&& exception) override { fail(exception.getDescription().cStr()); }

    kj::TaskSet _tasks;
};

/// A process that serves one object, and one that uses it.
template <typename Server, typename... Arguments> void serve(const Options& options, const Arguments&... arguments)
{
    auto io = kj::setupAsyncIo();
    const auto address = "unix:" + options.text("directory") + "/capnp";
    auto listener = io.provider->getNetwork().parseAddress(address.c_str()).wait(io.waitScope)->listen();
    capnp::TwoPartyServer server(kj::heap<Server>(arguments...));
    announceReady(address);
    server.listen(*listener).wait(io.waitScope);
}

struct Connection {
    explicit Connection(const Options& options)
        : io(kj::setupAsyncIo()),
          stream(io.provider->getNetwork()
                     .parseAddress(options.text("address").c_str())
                     .wait(io.waitScope)
                     ->connect()
                     .wait(io.waitScope)),
          client(*stream)
    {
    }

    kj::AsyncIoContext io;
    kj::Own<kj::AsyncIoStream> stream;
    capnp::TwoPartyClient client;
};

class EchoServer final : public Echo::Server {
public:
    explicit EchoServer(std::size_t resultBytes) : _resultBytes(static_cast<unsigned>(resultBytes)) { }

protected:
    kj::Promise<void> echo(EchoContext context) override
    {
        const auto number = readStamp(bytes(context.getParams().getArgument()));
        stamp(bytes(context.getResults().initResult(_resultBytes)), answerTo(number));
        return kj::READY_NOW;
    }

private:
    const unsigned _resultBytes;
};

void runIdle(const Options& options) { serve<EchoServer>(options, stampBytes); }
void runOwner(const Options& options) { serve<EchoServer>(options, options.count("result_bytes")); }

void runCaller(const Options& options)
{
    Connection connection(options);
    auto echo = connection.client.bootstrap().castAs<Echo>();
    Tasks calls;
    const auto argumentBytes = static_cast<unsigned>(options.count("argument_bytes"));
    std::function<void(std::uint64_t)> answered;
    CallLoad load(options, [&](std::uint64_t number) {
        auto request = echo.echoRequest(capnp::MessageSize { argumentBytes / sizeof(capnp::word) + 16, 0 });
        stamp(bytes(request.initArgument(argumentBytes)), number);
        calls.add(request.send().then([&](capnp::Response<Echo::EchoResults>&& response) {
            answered(answerTo(readStamp(bytes(response.getResult()))));
        }));
    });
    answered = [&](std::uint64_t number) { load.answered(number); };
    announceReady();
    load.start();
    kj::NEVER_DONE.wait(connection.io.waitScope);
}

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
    SubscriberServer(const Options& options, Feed::Client feed)
        : _index(options.count("index")),
          _count(options),
          _feed(kj::mv(feed))
    {
    }

protected:
    kj::Promise<void> event(EventContext context) override
    {
        if (const auto events = _count.received(bytes(context.getParams().getBody()))) acknowledge(*events);
        return kj::READY_NOW;
    }

private:
    void acknowledge(std::uint64_t events)
    {
        auto request = _feed.acknowledgeRequest();
        request.setIndex(_index);
        request.setEvents(events);
        _acknowledgements.add(request.send().ignoreResult());
    }

    const std::uint64_t _index;
    EventCount _count;
    Feed::Client _feed;
    Tasks _acknowledgements;
};

void runPublisher(const Options& options) { serve<FeedServer>(options, options); }

void runSubscriber(const Options& options)
{
    Connection connection(options);
    auto feed = connection.client.bootstrap().castAs<Feed>();
    auto request = feed.subscribeRequest();
    request.setIndex(options.count("index"));
    request.setSubscriber(kj::heap<SubscriberServer>(options, feed));
    announceReady();
    request.send().wait(connection.io.waitScope);
    kj::NEVER_DONE.wait(connection.io.waitScope);
}

} // namespace
} // namespace bench::capnproto

int main(int argc, char** argv)
{
    using namespace bench::capnproto;
    bench::play(bench::Options(argc, argv),
        { { "idle", runIdle }, { "owner", runOwner }, { "caller", runCaller }, { "publisher", runPublisher },
            { "subscriber", runSubscriber } });
}
