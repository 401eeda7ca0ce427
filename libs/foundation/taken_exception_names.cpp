#include "base/debug.h"
#include "base/exception_factory.h"
#include "foundation/logging/logging.h"

namespace fn {
namespace {

void report(const char* className, const std::type_info& type, const std::type_info& first)
{
    const auto& category = logging::category<"core.exception">();
    logging::writeChecked(category, logging::Warning, {}, { "libs/foundation/exception_factory", 0, "" },
        "The exception class name {} is taken: {} will arrive in other processes as {}", className,
        debug::demangleTypeName(type.name()), debug::demangleTypeName(first.name()));
}

[[maybe_unused]] const bool isReporting = (ExceptionFactory::setReporter(report), true);

} // namespace
} // namespace fn
