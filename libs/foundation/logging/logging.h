#pragma once
// Everything a class needs to log: categories and the macros.
#include "foundation/logging/category.h"
#include "foundation/logging/category_manager.h"
#include "foundation/logging/message.h"
#include <fmt/format.h>

namespace fn::logging {

/// Where a message comes from. `file` is a stable name such as "libs/core/data_util", never a build path.
struct Site {
    const char* file;
    int line;
    const char* function;
};

/// Hands a finished text to the sinks that want it. Thread-safe.
FN_EXPORT void write(const Category& category, int priority, const Tag& tag, const Site& site, String text);

/// Brace-formatted. The text is made by the caller's arguments only; a format that fails at run time is logged as such.
FN_EXPORT void writeFormatted(const Category& category, int priority, const Tag& tag, const Site& site,
    fmt::string_view format, fmt::format_args arguments);

/// printf-formatted.
FN_EXPORT void writePrintf(const Category& category, int priority, const Tag& tag, const Site& site, const char* format, ...)
    __attribute__((format(printf, 5, 6)));

} // namespace fn::logging

/// Costs one load and a compare where no sink wants `category` at `priority`: the arguments are evaluated only then.
#define FN_LOG_TO(category, priority, tag, file, format, ...) \
    do { \
        const auto& fnLogCategory = (category); \
        if (fnLogCategory.wants(priority)) [[unlikely]] \
            ::fn::logging::writeFormatted(fnLogCategory, priority, tag, ::fn::logging::Site { file, __LINE__, __func__ }, \
                FMT_STRING(format), ::fmt::make_format_args(__VA_ARGS__)); \
    } while (false)

#define FN_LOGF_TO(category, priority, tag, file, ...) \
    do { \
        const auto& fnLogCategory = (category); \
        if (fnLogCategory.wants(priority)) [[unlikely]] \
            ::fn::logging::writePrintf( \
                fnLogCategory, priority, tag, ::fn::logging::Site { file, __LINE__, __func__ }, __VA_ARGS__); \
    } while (false)
