// Cap'n Proto's RPC from process to process over a Unix socket, both ends on its own event loop.
#include "driver/call_load.h"
#include "driver/roles.h"
#include "driver/stamp.h"
#include "peer.capnp.h"
#include "peers/capnp/feed.h"
#include <capnp/rpc-twoparty.h>
#include <kj/async-io.h>
#include <kj/exception.h>

namespace bench::capnproto {
namespace {

std::span<const std::uint8_t> bytes(capnp::Data::Reader data) { return { data.begin(), data.size() }; }
std::span<std::uint8_t> bytes(capnp::Data::Builder data) { return { data.begin(), data.size() }; }

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

void serve(const Options& options, std::size_t resultBytes)
{
    auto io = kj::setupAsyncIo();
    const auto address = "unix:" + options.text("directory") + "/capnp";
    auto parsed = io.provider->getNetwork().parseAddress(address.c_str()).wait(io.waitScope);
    auto listener = parsed->listen();
    capnp::TwoPartyServer server(kj::heap<EchoServer>(resultBytes));
    announceReady(address);
    server.listen(*listener).wait(io.waitScope);
}

void runIdle(const Options& options) { serve(options, stampBytes); }
void runOwner(const Options& options) { serve(options, options.count("result_bytes")); }

class Caller final : kj::TaskSet::ErrorHandler {
public:
    explicit Caller(const Options& options)
        : _io(kj::setupAsyncIo()),
          _stream(_io.provider->getNetwork()
                      .parseAddress(options.text("address").c_str())
                      .wait(_io.waitScope)
                      ->connect()
                      .wait(_io.waitScope)),
          _client(*_stream),
          _echo(_client.bootstrap().castAs<Echo>()),
          _calls(*this),
          _argumentBytes(static_cast<unsigned>(options.count("argument_bytes"))),
          _load(options, [this](std::uint64_t number) { call(number); })
    {
    }

    void run()
    {
        announceReady();
        _load.start();
        kj::NEVER_DONE.wait(_io.waitScope);
    }

private:
    void call(std::uint64_t number)
    {
        auto request = _echo.echoRequest(capnp::MessageSize { _argumentBytes / sizeof(capnp::word) + 16, 0 });
        stamp(bytes(request.initArgument(_argumentBytes)), number);
        _calls.add(request.send().then([this](capnp::Response<Echo::EchoResults>&& response) {
            _load.answered(answerTo(readStamp(bytes(response.getResult()))));
        }));
    }

    void taskFailed(kj::Exception&& exception) override { fail(exception.getDescription().cStr()); }

    kj::AsyncIoContext _io;
    kj::Own<kj::AsyncIoStream> _stream;
    capnp::TwoPartyClient _client;
    Echo::Client _echo;
    kj::TaskSet _calls;
    const unsigned _argumentBytes;
    CallLoad _load;
};

void runCaller(const Options& options) { Caller(options).run(); }

} // namespace
} // namespace bench::capnproto

int main(int argc, char** argv)
{
    using namespace bench::capnproto;
    bench::play(bench::Options(argc, argv),
        { { "idle", runIdle }, { "owner", runOwner }, { "caller", runCaller }, { "publisher", runPublisher },
            { "subscriber", runSubscriber } });
}
