#include "foundation/unhandled_exception.h"
#include "base/debug.h"
#include "base/exception.h"
#include "foundation/detail/unseen_failures.h"
#include "foundation/logging/detail/standard_error.h"
#include "foundation/logging/logging.h"
#include "foundation/system/process_local.h"
#include <atomic>
#include <stdexcept>

namespace fn {
namespace {

constexpr logging::Site site { "libs/foundation/unhandled_exception", 0, "" };

std::atomic<UnhandledExceptionHook>& currentHook()
{
    static ProcessLocal<std::atomic<UnhandledExceptionHook>> hook;
    return hook.get();
}

constexpr auto& category = logging::category<"core.exception">;

std::string describe(const ResolvedStackTrace& trace)
{
    std::string text = "Stack trace:";
    for (const auto& frame : trace.frames) {
        text += fmt::format("\n{}+0x{:x} {}", frame.moduleName, frame.address, frame.symbolName);
        if (!frame.fileName.empty()) text += fmt::format(" ({}:{})", frame.fileName, frame.fileLine);
    }
    return text;
}

void logTrace(const Exception& exception)
{
    if (!category().wants(logging::Debug)) return; // Resolving a trace takes long.
    const auto* elsewhere = exception.find<ResolvedStackTraceInfo>();
    if (!elsewhere && exception.stackTrace().empty()) return;
    const auto text = describe(elsewhere ? *elsewhere : exception.stackTrace().resolve());
    logging::write(category(), logging::Debug, {}, site, text);
}

void log(std::string_view introduction, const std::exception& exception)
{
    logging::writeChecked(
        category(), logging::Error, {}, site, "{}{}", introduction, internal::exceptionText(exception));
    if (const auto* ours = dynamic_cast<const Exception*>(&exception)) logTrace(*ours);
}

// The exception that a catch block handles now; outside of any, an exception that names this mistake.
std::exception_ptr currentException()
{
    auto current = std::current_exception();
    return current ? current : std::make_exception_ptr(std::logic_error("no exception is being handled"));
}

void log(std::string_view introduction, const std::exception_ptr& exception)
{
    try {
        std::rethrow_exception(exception);
    } catch (const std::exception& known) {
        log(introduction, known);
    } catch (...) {
        logging::writeChecked(category(), logging::Error, {}, site, "{}exception of an unknown type", introduction);
    }
}

} // namespace

std::string internal::exceptionText(const std::exception& exception)
{
    const auto* ours = dynamic_cast<const Exception*>(&exception);
    return fmt::format(
        "{}: {}", ours ? ours->className() : debug::demangleTypeName(typeid(exception).name()), exception.what());
}

void logException(const std::exception& exception) noexcept
{
    try {
        log("", exception);
    } catch (...) {
        unhandledException();
    }
}

void logException() noexcept
{
    try {
        log("", currentException());
    } catch (...) {
        unhandledException();
    }
}

void unhandledException() noexcept
{
    static thread_local bool reporting = false;
    if (reporting) {
        // A log sink or the hook has failed in its turn: reporting that failure in the same way would never end.
        return logging::writeStandardError("Unhandled exception while one was reported\n");
    }
    reporting = true;
    const auto exception = currentException();
    try {
        log(fmt::format("Unhandled exception in {}: ", debug::processName()), exception);
    } catch (...) {
        logging::writeStandardError("Could not log an unhandled exception\n");
    }
    try {
        if (const auto hook = currentHook().load()) hook(exception);
    } catch (...) {
        logging::writeStandardError("The hook for unhandled exceptions failed\n");
    }
    reporting = false;
}

UnhandledExceptionHook setUnhandledExceptionHook(UnhandledExceptionHook hook) noexcept
{
    return currentHook().exchange(hook);
}

} // namespace fn
