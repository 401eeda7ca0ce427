#include "foundation/assertion.h"
#include "base/debug.h"
#include "foundation/logging/detail/standard_error.h"
#include "foundation/logging/logging.h"
#include "foundation/system/process_local.h"
#include "foundation/unhandled_exception.h"
#include <atomic>

namespace fn {
namespace {

void logAssertion(const AssertionSite& site)
{
    const auto& category = logging::category<"core.assertion">();
    logging::writeChecked(category, logging::Error, {}, { site.file, site.line, site.function },
        "Assertion failed in {}: {} ({}:{}, {})", debug::processName(), site.expression, site.file, site.line,
        site.function);
}

/// Null means the log.
std::atomic<AssertionHook>& currentHook()
{
    static ProcessLocal<std::atomic<AssertionHook>> hook;
    return hook.get();
}

} // namespace

void reportAssertion(const AssertionSite& site) noexcept
{
    static thread_local bool reporting = false;
    if (reporting) {
        // The hook, or a log sink that the hook has called, has broken an invariant itself.
        logging::writeStandardError("Assertion failed while one was reported: ");
        logging::writeStandardError(site.expression);
        return logging::writeStandardError("\n");
    }
    reporting = true;
    try {
        const auto hook = currentHook().load();
        (hook ? hook : logAssertion)(site);
    } catch (...) {
        unhandledException();
    }
    reporting = false;
}

AssertionHook setAssertionHook(AssertionHook hook) noexcept
{
    const auto previous = currentHook().exchange(hook);
    return previous ? previous : logAssertion;
}

} // namespace fn
