// gRPC from process to process over a Unix socket: unary calls and streams of events, each end with one completion queue and
// one thread.
#include "driver/call_load.h"
#include "driver/event_load.h"
#include "driver/roles.h"
#include "driver/stamp.h"
#include "peer.grpc.pb.h"
#include <deque>
#include <grpcpp/grpcpp.h>
#include <optional>

namespace bench::grpcs {
namespace {

constexpr int waitingCalls = 1024; // Slots for calls that have not come yet: no call waits for one.

std::span<const std::uint8_t> bytes(const Body& body)
{
    return { reinterpret_cast<const std::uint8_t*>(body.content().data()), body.content().size() };
}

void setStamped(Body& body, std::uint64_t number, std::size_t size)
{
    auto& content = *body.mutable_content();
    content.resize(size);
    stamp({ reinterpret_cast<std::uint8_t*>(content.data()), size }, number);
}

/// What is done when an operation has ended; its address is the operation's tag.
using Completion = std::function<void()>;

void complete(grpc::CompletionQueue& queue)
{
    void* tag = nullptr;
    bool ok = false;
    while (queue.Next(&tag, &ok)) {
        if (!ok) fail("a call or a stream was cut off");
        (*static_cast<Completion*>(tag))();
    }
}

template <typename Service> class Server {
public:
    explicit Server(const Options& options) : _address("unix:" + options.text("directory") + "/grpc")
    {
        grpc::ServerBuilder builder;
        builder.AddListeningPort(_address, grpc::InsecureServerCredentials());
        builder.RegisterService(&service);
        queue = builder.AddCompletionQueue();
        _server = builder.BuildAndStart();
        if (!_server) fail("no server at " + _address);
    }

    void run()
    {
        announceReady(_address);
        complete(*queue);
    }

    typename Service::AsyncService service;
    std::unique_ptr<grpc::ServerCompletionQueue> queue;

private:
    const std::string _address;
    std::unique_ptr<grpc::Server> _server;
};

/// A call that is awaited, then answered, and so on.
class Slot {
public:
    Slot(Server<Echo>& server, std::size_t resultBytes)
        : _server(server),
          _resultBytes(resultBytes),
          _arrived([this] { answer(); }),
          _answered([this] { await(); })
    {
        await();
    }
    Slot(const Slot&) = delete;

private:
    void await()
    {
        _responder.reset(); // Refers to the context.
        _context.emplace();
        _responder.emplace(&*_context);
        auto& queue = *_server.queue;
        _server.service.RequestEcho(&*_context, &_argument, &*_responder, &queue, &queue, &_arrived);
    }

    void answer()
    {
        setStamped(_result, answerTo(readStamp(bytes(_argument))), _resultBytes);
        _responder->Finish(_result, grpc::Status::OK, &_answered);
    }

    Server<Echo>& _server;
    const std::size_t _resultBytes;
    std::optional<grpc::ServerContext> _context;
    std::optional<grpc::ServerAsyncResponseWriter<Body>> _responder;
    Body _argument;
    Body _result;
    Completion _arrived;
    Completion _answered;
};

void serve(const Options& options, std::size_t resultBytes)
{
    Server<Echo> server(options);
    std::deque<Slot> slots;
    for (int i = 0; i < waitingCalls; ++i) slots.emplace_back(server, resultBytes);
    server.run();
}

void runIdle(const Options& options) { serve(options, stampBytes); }
void runOwner(const Options& options) { serve(options, options.count("result_bytes")); }

class Caller {
public:
    explicit Caller(const Options& options)
        : _channel(grpc::CreateChannel(options.text("address"), grpc::InsecureChannelCredentials())),
          _stub(Echo::NewStub(_channel)),
          _argumentBytes(options.count("argument_bytes")),
          _load(options, [this](std::uint64_t number) { call(number); })
    {
        if (!_channel->WaitForConnected(std::chrono::system_clock::now() + std::chrono::seconds(10)))
            fail("no connection");
    }

    void run()
    {
        announceReady();
        _load.start();
        complete(_queue);
    }

private:
    struct Call {
        grpc::ClientContext context;
        Body argument;
        Body result;
        grpc::Status status;
        std::unique_ptr<grpc::ClientAsyncResponseReader<Body>> reader;
        Completion ended;
    };

    void call(std::uint64_t number)
    {
        auto* const call = new Call; // Owned by the queue until it has ended.
        call->ended = [this, call] { ended(std::unique_ptr<Call>(call)); };
        setStamped(call->argument, number, _argumentBytes);
        call->reader = _stub->AsyncEcho(&call->context, call->argument, &_queue);
        call->reader->Finish(&call->result, &call->status, &call->ended);
    }

    void ended(std::unique_ptr<Call> call)
    {
        if (!call->status.ok()) fail("call: " + call->status.error_message());
        _load.answered(answerTo(readStamp(bytes(call->result))));
    }

    const std::shared_ptr<grpc::Channel> _channel;
    const std::unique_ptr<Echo::Stub> _stub;
    grpc::CompletionQueue _queue;
    const std::size_t _argumentBytes;
    CallLoad _load;
};

void runCaller(const Options& options) { Caller(options).run(); }

/// The stream of one subscriber. One read is always under way, and one write where there are events left.
class Subscription {
public:
    using OnAcknowledged = std::function<void(const Acknowledgement&)>;

    Subscription(Server<Feed>& server, OnAcknowledged onAcknowledged)
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
        server.service.RequestSubscribe(&_context, &_stream, server.queue.get(), server.queue.get(), &_opened);
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

void runPublisher(const Options& options)
{
    Server<Feed> server(options);
    std::deque<Subscription> subscriptions;
    EventLoad load(options, [&](std::span<const std::uint8_t> content) {
        const auto event = std::make_shared<Body>();
        event->set_content(content.data(), content.size());
        for (auto& subscription : subscriptions) subscription.send(event);
    });
    for (auto i = options.count("subscribers"); i > 0; --i) {
        subscriptions.emplace_back(
            server, [&](const Acknowledgement& told) { load.acknowledged(told.index(), told.events()); });
    }
    server.run();
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
        if (const auto events = count.received(bytes(event))) acknowledge(*events);
    }
    fail("the stream has ended");
}

} // namespace
} // namespace bench::grpcs

int main(int argc, char** argv)
{
    using namespace bench::grpcs;
    bench::play(bench::Options(argc, argv),
        { { "idle", runIdle }, { "owner", runOwner }, { "caller", runCaller }, { "publisher", runPublisher },
            { "subscriber", runSubscriber } });
}
