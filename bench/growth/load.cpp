#include "growth/load.h"
#include "driver/stamp.h"

namespace bench::growth {
namespace {

constexpr unsigned manyInFlight = 100;

void finish(Session& session, Load& load)
{
    bool isDone = false;
    load.stop([&] {
        isDone = true;
        session.loop().stop();
    });
    session.runUntil([&] { return isDone; });
}

} // namespace

fn::ByteArray echoOf(const fn::ByteArray& argument)
{
    return stamped(answerTo(readStamp(argument.bytes())), smallBytes);
}

Load::Load(fn::AutoPtr<ipc::CallableObjectReference> object, unsigned window, std::size_t argumentBytes)
    : _object(std::move(object)),
      _window(window),
      _argumentBytes(argumentBytes)
{
    if (window == 1) _latencies.reserve(1 << 18); // Not while measuring.
}

void Load::start()
{
    _isRunning = true;
    while (_inFlight < _window) send();
}

void Load::stop(std::function<void()> onAnswered)
{
    _isRunning = false;
    _onAnswered = std::move(onAnswered);
}

void Load::forget()
{
    _answered = 0;
    _latencies.clear();
}

void Load::send()
{
    ++_inFlight;
    const auto number = _sent++;
    const auto sentAt = Clock::now();
    _object->callMethod("echo", stamped(number, _argumentBytes))
        .then([this, number, sentAt](const fn::Value& result) { onAnswer(number, sentAt, result); }, failing("echo"));
}

void Load::onAnswer(std::uint64_t number, Clock::time_point sentAt, const fn::Value& result)
{
    if (readStamp(result.byteArray().bytes()) != answerTo(number)) fail("a wrong result arrived");
    --_inFlight;
    ++_answered;
    if (_window == 1) _latencies.push_back(Microseconds(Clock::now() - sentAt).count());
    if (_isRunning)
        send();
    else if (_inFlight == 0)
        _onAnswered();
}

std::vector<double> measureLatencies(
    Session& session, const fn::AutoPtr<ipc::CallableObjectReference>& object, double seconds, std::size_t bytes)
{
    Load load(object, 1, bytes);
    load.start();
    session.runFor(seconds / 4);
    load.forget();
    session.runFor(seconds);
    finish(session, load);
    return std::move(load.latencies());
}

double measureRate(Session& session, Load& load, double seconds)
{
    load.start();
    session.runFor(seconds / 4);
    load.forget();
    const auto start = Clock::now();
    session.runFor(seconds);
    const auto answered = static_cast<double>(load.answered());
    const auto elapsed = std::chrono::duration<double>(Clock::now() - start).count();
    finish(session, load);
    return answered / elapsed;
}

CallFigures measureCalls(Session& session, const fn::AutoPtr<ipc::CallableObjectReference>& object, double seconds)
{
    auto latencies = measureLatencies(session, object, seconds, smallBytes);
    Load load(object, manyInFlight);
    return { percentile(latencies, 0.5), percentile(latencies, 0.99), measureRate(session, load, seconds) };
}

} // namespace bench::growth
