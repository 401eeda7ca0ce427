#pragma once
#include "growth/session.h"
#include <chrono>
#include <vector>

namespace bench::growth {

using Clock = std::chrono::steady_clock;
using Microseconds = std::chrono::duration<double, std::micro>;

/// What an object answers to the method "echo": the stamp of the argument, turned over.
fn::ByteArray echoOf(const fn::ByteArray& argument);
inline constexpr std::size_t smallBytes = 16;

/// Keeps `window` calls of "echo" on one object in flight and checks every answer.
class Load {
public:
    Load(fn::AutoPtr<ipc::CallableObjectReference> object, unsigned window, std::size_t argumentBytes = smallBytes);
    Load(const Load&) = delete;
    Load& operator=(const Load&) = delete;

    void start();
    void stop(std::function<void()> onAnswered); ///< What is under way is awaited. Must be running.

    void forget(); ///< What was measured so far, of the warm-up.
    std::uint64_t answered() const { return _answered; }
    std::vector<double>& latencies() { return _latencies; } ///< In microseconds, of calls that go one at a time.

private:
    void send();
    void onAnswer(std::uint64_t number, Clock::time_point sentAt, const fn::Value& result);

    const fn::AutoPtr<ipc::CallableObjectReference> _object;
    const unsigned _window;
    const std::size_t _argumentBytes;
    bool _isRunning = false;
    unsigned _inFlight = 0;
    std::uint64_t _sent = 0;
    std::uint64_t _answered = 0;
    std::vector<double> _latencies;
    std::function<void()> _onAnswered;
};

/// Answers a second for `seconds`, after a quarter of that which does not count.
double measureRate(Session& session, Load& load, double seconds);

/// What a small call costs: one at a time, and with 100 in flight.
struct CallFigures {
    double median;
    double p99;
    double rate; ///< A second.
};

/// Takes two and a half times `seconds`.
CallFigures measureCalls(Session& session, const fn::AutoPtr<ipc::CallableObjectReference>& object, double seconds);

/// One call at a time for `seconds`, after a quarter of that which does not count: the latencies.
std::vector<double> measureLatencies(
    Session& session, const fn::AutoPtr<ipc::CallableObjectReference>& object, double seconds, std::size_t bytes);

} // namespace bench::growth
