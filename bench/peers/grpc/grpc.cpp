// gRPC from process to process over a Unix socket: unary calls, each end with one completion queue and one thread.
#include "driver/call_load.h"
#include "driver/roles.h"
#include "driver/stamp.h"
#include "peer.grpc.pb.h"
#include "peers/grpc/feed.h"
#include <grpcpp/grpcpp.h>
#include <optional>

namespace bench::grpcs {
namespace {

constexpr int waitingCalls = 1024; // Slots for calls that have not come yet: no call waits for one.

std::span<const std::uint8_t> bytes(const std::string& content)
{
    return { reinterpret_cast<const std::uint8_t*>(content.data()), content.size() };
}

void setStamped(Body& body, std::uint64_t number, std::size_t size)
{
    auto& content = *body.mutable_content();
    content.resize(size);
    stamp({ reinterpret_cast<std::uint8_t*>(content.data()), size }, number);
}

/// Hands each completion to the object that it is about.
template <typename Object> void complete(grpc::CompletionQueue& queue)
{
    void* tag = nullptr;
    bool ok = false;
    while (queue.Next(&tag, &ok)) {
        if (!ok) fail("a call was cut off");
        static_cast<Object*>(tag)->completed();
    }
}

/// A call that is awaited, then answered, and so on.
class Slot {
public:
    Slot(Echo::AsyncService& service, grpc::ServerCompletionQueue& queue, std::size_t resultBytes)
        : _service(service),
          _queue(queue),
          _resultBytes(resultBytes)
    {
        await();
    }

    void completed()
    {
        if (_isAnswering) return await();
        setStamped(_result, answerTo(readStamp(bytes(_argument.content()))), _resultBytes);
        _isAnswering = true;
        _responder->Finish(_result, grpc::Status::OK, this);
    }

private:
    void await()
    {
        _isAnswering = false;
        _responder.reset(); // Refers to the context.
        _context.emplace();
        _responder.emplace(&*_context);
        _service.RequestEcho(&*_context, &_argument, &*_responder, &_queue, &_queue, this);
    }

    Echo::AsyncService& _service;
    grpc::ServerCompletionQueue& _queue;
    const std::size_t _resultBytes;
    std::optional<grpc::ServerContext> _context;
    std::optional<grpc::ServerAsyncResponseWriter<Body>> _responder;
    Body _argument;
    Body _result;
    bool _isAnswering = false;
};

void serve(const Options& options, std::size_t resultBytes)
{
    const auto address = "unix:" + options.text("directory") + "/grpc";
    Echo::AsyncService service;
    grpc::ServerBuilder builder;
    builder.AddListeningPort(address, grpc::InsecureServerCredentials());
    builder.RegisterService(&service);
    const auto queue = builder.AddCompletionQueue();
    const auto server = builder.BuildAndStart();
    if (!server) fail("no server at " + address);
    std::vector<std::unique_ptr<Slot>> slots;
    for (int i = 0; i < waitingCalls; ++i) slots.push_back(std::make_unique<Slot>(service, *queue, resultBytes));
    announceReady(address);
    complete<Slot>(*queue);
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
        complete<Call>(_queue);
    }

private:
    struct Call {
        Caller& caller;
        grpc::ClientContext context;
        Body argument;
        Body result;
        grpc::Status status;
        std::unique_ptr<grpc::ClientAsyncResponseReader<Body>> reader;

        void completed()
        {
            const std::unique_ptr<Call> call(this);
            if (!status.ok()) fail("call: " + status.error_message());
            caller._load.answered(answerTo(readStamp(bytes(result.content()))));
        }
    };

    void call(std::uint64_t number)
    {
        auto* const call = new Call { *this, {}, {}, {}, {}, {} }; // Owned by the queue until it is completed.
        setStamped(call->argument, number, _argumentBytes);
        call->reader = _stub->AsyncEcho(&call->context, call->argument, &_queue);
        call->reader->Finish(&call->result, &call->status, call);
    }

    const std::shared_ptr<grpc::Channel> _channel;
    const std::unique_ptr<Echo::Stub> _stub;
    grpc::CompletionQueue _queue;
    const std::size_t _argumentBytes;
    CallLoad _load;
};

void runCaller(const Options& options) { Caller(options).run(); }

} // namespace
} // namespace bench::grpcs

int main(int argc, char** argv)
{
    using namespace bench::grpcs;
    bench::play(bench::Options(argc, argv),
        { { "idle", runIdle }, { "owner", runOwner }, { "caller", runCaller }, { "publisher", runPublisher },
            { "subscriber", runSubscriber } });
}
