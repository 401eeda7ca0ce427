// How a hub and its workers behave as the work grows: who serves, and who measures.
#include "driver/roles.h"
#include "foundation/assertion.h"
#include "foundation/unhandled_exception.h"
#include "growth/roles.h"
#include <fmt/format.h>

namespace bench::growth {
namespace {

/// Plays a role in a task of a loop, which its steps run again: promises are used while their loop runs.
template <void (*play)(const Options&, fn::uv::Loop&)> void inLoop(const Options& options)
{
    fn::uv::Loop loop;
    loop.post([&] { play(options, loop); });
    loop.run();
}

/// What the library would only report makes numbers wrong.
void failOnReports()
{
    fn::setAssertionHook([](const fn::AssertionSite& site) {
        fail(fmt::format("broken invariant: {} ({}, {})", site.expression, site.file, site.line));
    });
    fn::setUnhandledExceptionHook([](std::exception_ptr exception) { failWith("unhandled exception", exception); });
}

} // namespace
} // namespace bench::growth

int main(int argc, char** argv)
{
    using namespace bench::growth;
    failOnReports();
    bench::play(bench::Options(argc, argv),
        { { "subject", inLoop<playSubject> }, { "crowd", inLoop<playCrowd> }, { "calls", inLoop<playCalls> },
            { "objects", inLoop<playObjects> }, { "registry", inLoop<playRegistry> },
            { "pending", inLoop<playPending> }, { "death", inLoop<playDeath> }, { "bulk", inLoop<playBulk> },
            { "soak", inLoop<playSoak> } });
}
