// ZeroC Ice from process to process. It knows no Unix sockets: TCP on the loopback. Each end has one thread for its calls,
// which is its default.
#include "Peer.h"
#include "driver/call_load.h"
#include "driver/roles.h"
#include "driver/stamp.h"
#include "peers/ice/array.h"
#include "peers/ice/feed.h"
#include <mutex>

namespace bench::ice {
namespace {

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

void serve(std::size_t resultBytes)
{
    Ice::CommunicatorHolder communicator(settings());
    const auto adapter = communicator->createObjectAdapterWithEndpoints("bench", "tcp -h 127.0.0.1");
    const auto proxy = adapter->add(std::make_shared<EchoServant>(resultBytes), Ice::stringToIdentity("echo"));
    adapter->activate();
    announceReady(proxy->ice_toString());
    communicator->waitForShutdown();
}

void runIdle(const Options&) { serve(stampBytes); }
void runOwner(const Options& options) { serve(options.count("result_bytes")); }

class Caller {
public:
    explicit Caller(const Options& options)
        : _communicator(settings()),
          _echo(Ice::checkedCast<EchoPrx>(_communicator->stringToProxy(options.text("address")))),
          _argument(options.count("argument_bytes")),
          _load(options, [this](std::uint64_t number) { call(number); })
    {
        if (!_echo) fail("somebody else has answered");
    }

    void run()
    {
        announceReady();
        {
            const std::lock_guard guard(_lock);
            _load.start();
        }
        _communicator->waitForShutdown();
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

    Ice::CommunicatorHolder _communicator;
    const std::shared_ptr<EchoPrx> _echo;
    std::vector<std::uint8_t> _argument;
    std::mutex _lock;
    CallLoad _load;
};

void runCaller(const Options& options) { Caller(options).run(); }

} // namespace
} // namespace bench::ice

int main(int argc, char** argv)
{
    using namespace bench::ice;
    bench::play(bench::Options(argc, argv),
        { { "idle", runIdle }, { "owner", runOwner }, { "caller", runCaller }, { "publisher", runPublisher },
            { "subscriber", runSubscriber } });
}
