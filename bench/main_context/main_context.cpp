// What does a source of GLib lose by running on our loop instead of GLib's own? The time from a write by another thread to
// the source's callback, on both in turn; what a bare hand-over from a thread that waits to another one costs, as that is what
// the integration adds; and how often an idle process wakes up. Started by scripts/bench main-context.
#include "core/services/g_main_context_integration.h"
#include "driver/driver.h"
#include "foundation/uv/loop.h"
#include "main_context/writer.h"
#include <algorithm>
#include <atomic>
#include <fmt/format.h>
#include <functional>
#include <glib-unix.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace {

using bench::Nanoseconds;
using Samples = std::vector<Nanoseconds>;

struct Plan {
    int rounds;
    int samples; // A round, of each kind.
    std::chrono::milliseconds idle;
};
constexpr Plan full { 15, 200, std::chrono::seconds(5) };
constexpr Plan smoke { 2, 5, std::chrono::milliseconds(50) };

void awaitReadable(int descriptor)
{
    pollfd wait { descriptor, POLLIN, 0 };
    if (poll(&wait, 1, -1) != 1) bench::fail("can not wait for a descriptor");
}

/// Something that runs GLib's default context.
struct Runner {
    std::function<void()> run; // Until `stop`.
    std::function<void()> stop; // From any thread.
};

void onOurLoop(const std::function<void(const Runner&)>& use)
{
    fn::uv::Loop loop;
    core::GMainContextIntegration::init(loop);
    use({ [&] { loop.run(); }, [&] { loop.stop(); } });
    core::GMainContextIntegration::quit();
}

void onGlibsLoop(const std::function<void(const Runner&)>& use)
{
    GMainLoop* const loop = g_main_loop_new(nullptr, FALSE);
    use({ [&] { g_main_loop_run(loop); }, [&] { g_main_loop_quit(loop); } });
    g_main_loop_unref(loop);
}

/// One round of latencies.
class Listener {
public:
    Listener(bench::Writer& writer, int count, Samples& samples) : _writer(writer), _left(count), _samples(samples)
    {
        const auto onReadable = [](gint, GIOCondition, gpointer self) -> gboolean {
            static_cast<Listener*>(self)->heard();
            return TRUE;
        };
        _source = g_unix_fd_add(writer.descriptor(), G_IO_IN, onReadable, this);
    }
    Listener(const Listener&) = delete;
    ~Listener() { g_source_remove(_source); }

    void listen(const Runner& runner)
    {
        _stop = runner.stop;
        _writer.askForOne();
        runner.run();
    }

private:
    void heard()
    {
        _samples.push_back(_writer.take());
        if (--_left > 0)
            _writer.askForOne();
        else
            _stop();
    }

    bench::Writer& _writer;
    int _left;
    Samples& _samples;
    std::function<void()> _stop;
    guint _source = 0;
};

/// One round of hand-overs, as one stands on the integration's way: a thread that has waited for the writer's descriptor
/// wakes another one, which waits for it. Nothing of ours or of GLib's is in it, only what any such design pays.
///
/// Who is woken and wakes in turn is dearer than who wakes by itself: it runs on the processor of who woke it, which is
/// still busy, and so the kernel rouses the other processor for the third thread.
void handOver(bench::Writer& writer, int count, Samples& samples)
{
    const int next = eventfd(0, EFD_CLOEXEC);
    if (next < 0) bench::fail("no eventfd");
    std::atomic<Nanoseconds> start;
    std::thread middle([&] {
        for (int left = count; left > 0; --left) {
            awaitReadable(writer.descriptor());
            writer.take();
            start = bench::now();
            eventfd_write(next, 1);
        }
    });
    for (int left = count; left > 0; --left) {
        writer.askForOne();
        awaitReadable(next);
        samples.push_back(bench::now() - start.load());
        eventfd_t one = 0;
        eventfd_read(next, &one);
    }
    middle.join();
    close(next);
}

double idleWaitsPerSecond(std::chrono::milliseconds time, const Runner& runner)
{
    std::uint64_t count = 0;
    const guint farAway = g_timeout_add_seconds(
        3600, [](gpointer) -> gboolean { return FALSE; }, nullptr);
    std::thread sampler([&] {
        std::this_thread::sleep_for(time / 5); // Until all have gone to sleep.
        const auto before = bench::waits();
        std::this_thread::sleep_for(time);
        count = bench::waits() - before;
        runner.stop();
    });
    runner.run();
    sampler.join();
    g_source_remove(farAway);
    return static_cast<double>(count) / std::chrono::duration<double>(time).count();
}

double microseconds(Samples samples, double quantile)
{
    const auto index = static_cast<std::ptrdiff_t>(quantile * static_cast<double>(samples.size() - 1));
    std::nth_element(samples.begin(), samples.begin() + index, samples.end());
    return std::chrono::duration<double, std::micro>(samples[static_cast<std::size_t>(index)]).count();
}

void measure(const Plan& plan, bool isQuiet)
{
    double load = 0;
    getloadavg(&load, 1);
    bench::Writer writer;
    Samples ours;
    Samples glibs;
    Samples handOvers;
    for (int round = 0; round < plan.rounds;
         ++round) { // Interleaved: a slower minute of the machine meets all of them.
        onOurLoop([&](const Runner& runner) { Listener(writer, plan.samples, ours).listen(runner); });
        onGlibsLoop([&](const Runner& runner) { Listener(writer, plan.samples, glibs).listen(runner); });
        handOver(writer, plan.samples, handOvers);
    }
    // The writer alone has waited once a sample: a count that does not show it is none.
    if (bench::waits() < static_cast<std::uint64_t>(plan.rounds * plan.samples)) bench::fail("waits are not counted");
    double ourWaits = 0;
    double glibsWaits = 0;
    onOurLoop([&](const Runner& runner) { ourWaits = idleWaitsPerSecond(plan.idle, runner); });
    onGlibsLoop([&](const Runner& runner) { glibsWaits = idleWaitsPerSecond(plan.idle, runner); });
    const auto expected = static_cast<std::size_t>(plan.rounds * plan.samples);
    if (ours.size() != expected || glibs.size() != expected || handOvers.size() != expected) bench::fail("lost events");
    if (isQuiet) return fmt::print("bench_main_context: all results right\n");

    fmt::print("A source of GLib, from the write to the callback, us ({} samples each, interleaved)\n\n", expected);
    fmt::print("{:28} {:>8} {:>8} {:>8} {:>8}\n", "", "ours", "GLib", "hand-over", "goal");
    for (const auto& [name, quantile] : { std::pair { "median", 0.5 }, std::pair { "99th percentile", 0.99 } }) {
        const double ourTime = microseconds(ours, quantile);
        const double glibsTime = microseconds(glibs, quantile);
        const double handOverTime = microseconds(handOvers, quantile);
        const double goal = 2 * glibsTime + handOverTime;
        fmt::print("{:28} {:8.1f} {:8.1f} {:9.1f} {:8.1f} {}\n", name, ourTime, glibsTime, handOverTime, goal,
            ourTime <= goal ? "met" : "MISSED");
    }
    fmt::print("{:28} {:8.2f} {:8.2f} {:>9} {:8.1f} {}\n", "wake-ups a second when idle", ourWaits, glibsWaits, "-",
        1.0, ourWaits <= 1 ? "met" : "MISSED");
}

} // namespace

int main(int argc, char** argv)
{
    const bool isSmoke = argc == 2 && std::string_view(argv[1]) == "--smoke";
    if (argc > 1 && !isSmoke) bench::fail("usage: bench_main_context [--smoke]");
    measure(isSmoke ? smoke : full, isSmoke);
    return 0;
}
