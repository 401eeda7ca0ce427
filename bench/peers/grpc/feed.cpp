#include "peers/grpc/feed.h"
#include "driver/event_load.h"
#include "peer.grpc.pb.h"
#include <deque>
#include <grpcpp/grpcpp.h>

namespace bench::grpcs {
namespace {

using Completion = std::function<void()>;

/// The stream of one subscriber. One read is always under way, and one write where there are events left.
class Subscription {
public:
    using OnAcknowledged = std::function<void(const Acknowledgement&)>;

    Subscription(Feed::AsyncService& service, grpc::ServerCompletionQueue& queue, OnAcknowledged onAcknowledged)
        : _stream(&_context),
          _onAcknowledged(std::move(onAcknowledged)),
          _opened([this] {
              _isOpen = true;
              read();
          }),
          _read([this] {
              _onAcknowledged(_acknowledgement);
              read();
          }),
          _written([this] {
              _events.pop_front();
              if (!_events.empty()) write();
          })
    {
        service.RequestSubscribe(&_context, &_stream, &queue, &queue, &_opened);
    }
    Subscription(const Subscription&) = delete;

    void send(const std::shared_ptr<const Body>& event)
    {
        if (!_isOpen) fail("an event for nobody");
        _events.push_back(event);
        if (_events.size() == 1) write();
    }

private:
    void read() { _stream.Read(&_acknowledgement, &_read); }

    void write()
    {
        grpc::WriteOptions options;
        if (_events.size() > 1) options.set_buffer_hint(); // Another follows at once.
        _stream.Write(*_events.front(), options, &_written);
    }

    grpc::ServerContext _context;
    grpc::ServerAsyncReaderWriter<Body, Acknowledgement> _stream;
    Acknowledgement _acknowledgement;
    std::deque<std::shared_ptr<const Body>> _events; // The first one is being written.
    bool _isOpen = false;
    const OnAcknowledged _onAcknowledged;
    Completion _opened;
    Completion _read;
    Completion _written;
};

} // namespace

void runPublisher(const Options& options)
{
    const auto address = "unix:" + options.text("directory") + "/grpc";
    Feed::AsyncService service;
    grpc::ServerBuilder builder;
    builder.AddListeningPort(address, grpc::InsecureServerCredentials());
    builder.RegisterService(&service);
    const auto queue = builder.AddCompletionQueue();
    const auto server = builder.BuildAndStart();
    if (!server) fail("no server at " + address);

    std::vector<std::unique_ptr<Subscription>> subscriptions;
    EventLoad load(options, [&](std::span<const std::uint8_t> content) {
        const auto event = std::make_shared<Body>();
        event->set_content(content.data(), content.size());
        for (const auto& subscription : subscriptions) subscription->send(event);
    });
    for (auto i = options.count("subscribers"); i > 0; --i) {
        subscriptions.push_back(std::make_unique<Subscription>(
            service, *queue, [&](const Acknowledgement& told) { load.acknowledged(told.index(), told.events()); }));
    }
    announceReady(address);
    void* tag = nullptr;
    bool ok = false;
    while (queue->Next(&tag, &ok)) {
        if (!ok) fail("a stream was cut off");
        (*static_cast<Completion*>(tag))();
    }
}

void runSubscriber(const Options& options)
{
    const auto stub = Feed::NewStub(grpc::CreateChannel(options.text("address"), grpc::InsecureChannelCredentials()));
    grpc::ClientContext context;
    const auto stream = stub->Subscribe(&context);
    EventCount count(options);
    Acknowledgement acknowledgement;
    acknowledgement.set_index(options.count("index"));
    const auto acknowledge = [&](std::uint64_t events) {
        acknowledgement.set_events(events);
        if (!stream->Write(acknowledgement)) fail("no stream");
    };
    announceReady();
    acknowledge(0);
    for (Body event; stream->Read(&event);) {
        const auto& content = event.content();
        const auto events = count.received({ reinterpret_cast<const std::uint8_t*>(content.data()), content.size() });
        if (events) acknowledge(*events);
    }
    fail("the stream has ended");
}

} // namespace bench::grpcs
