// A worker as a process of its own: test_worker PIPE_NAME ROLE.
//   serve   offers a service: "echo", "give" (an object of its own), "keep" (holds its argument), "wait" (no answer)
//   use     finds the service, exchanges objects and calls with it and exits: 0 if all was as expected
//   hold    finds the service, holds an object of it, has a call pending, prints "holding" and stays
#include "support/worker.h"
#include <cstdio>
#include <cstdlib>

namespace {

fn::RunLoop& loop() { return fn::RunLoop::defaultLoop(); }

void print(const char* line)
{
    std::puts(line);
    std::fflush(stdout);
}

[[noreturn]] void finish(int status, const char* why)
{
    if (status != 0) std::fprintf(stderr, "test_worker: %s\n", why);
    std::fflush(stdout);
    std::_Exit(status);
}

class Participant final : public ipc::Worker::Delegate {
public:
    Participant(const char* pipeName, const char* role)
        : _role(role),
          _worker(*this, loop(), pipeName, role, fn::String(), true)
    {
        _worker.registerObjectReferenceClass<test::ServiceReference>();
        _worker.connect();
    }

    void workerDidConnect(ipc::Worker&) override
    {
        if (_role == "serve")
            serve();
        else
            find();
    }
    bool wantsIdleTermination(ipc::Worker&) override { return false; }
    bool workerCanTerminate(ipc::Worker&) override { return false; }
    void workerRequestsTermination(ipc::Worker&) override { loop().stop(); }
    void aboutToQuit(ipc::Worker&) override { loop().stop(); }

private:
    void serve()
    {
        _service = fn::makeAuto<test::Service>(_worker);
        _service->answer = [this](const test::Service::Call& call) {
            if (call.name == "echo")
                _service->sendResult(call.context, call.argument);
            else if (call.name == "give")
                _service->sendResult(call.context, fn::makeAuto<test::Service>(_worker));
            else if (call.name == "count")
                _service->sendResult(call.context, test::Service::alive);
            else if (call.name == "keep") {
                _kept = call.argument.object<test::ServiceReference>();
                useKept(call.context);
            }
        };
        _worker.registry()->registerObject(_service, 0).then([] { print("serving"); });
    }

    /// Calls back the object it was given, in the caller's process.
    void useKept(test::Service::CallContext context)
    {
        _kept->callMethod("echo", "from the server").then([this, context](fn::Value&& answer) {
            _service->calls.clear();
            _kept.reset();
            _service->sendResult(context, answer);
        });
    }

    void find()
    {
        _worker.registry()
            ->getInstance<test::ServiceReference>(fn::Duration::seconds(20))
            .then(
                [this](fn::AutoPtr<test::ServiceReference>&& found) {
                    _found = std::move(found);
                    if (_role == "use")
                        use();
                    else
                        hold();
                },
                [](std::exception_ptr) { finish(1, "no service"); });
    }

    void use()
    {
        // A call, an object of theirs, and an object of ours that they call.
        _service = fn::makeAuto<test::Service>(_worker);
        _found->callMethod("echo", fn::ByteArray(3'000'000u))
            .then([this](fn::Value&& answer) {
                if (answer.byteArray().size() != 3'000'000) finish(1, "the echo differs");
                return _found->callMethod("give", {});
            })
            .then([this](fn::Value&& answer) {
                _given = answer.object<test::ServiceReference>();
                if (!_given) finish(1, "no object was given");
                return _given->callMethod("echo", 42);
            })
            .then([this](fn::Value&& answer) {
                if (answer != fn::Value(42)) finish(1, "the given object does not answer");
                return _found->callMethod("keep", _service);
            })
            .then(
                [](fn::Value&& answer) {
                    if (answer != fn::Value("from the server")) finish(1, "our object was not called");
                    loop().stop();
                },
                [](std::exception_ptr) { finish(1, "a call failed"); });
    }

    void hold()
    {
        _found->callMethod("wait", {});
        _found->callMethod("give", {}).then([this](fn::Value&& answer) {
            _given = answer.object<test::ServiceReference>();
            print("holding");
        });
    }

    const std::string _role;
    ipc::Worker _worker;
    fn::AutoPtr<test::Service> _service;
    fn::AutoPtr<test::ServiceReference> _found;
    fn::AutoPtr<test::ServiceReference> _given;
    fn::AutoPtr<test::ServiceReference> _kept;
};

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3) return 2;
    const Participant participant(argv[1], argv[2]);
    loop().run();
    return 0;
}
