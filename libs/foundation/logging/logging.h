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

/// Hands a finished text to the sinks that want it. An exception of a sink goes to `fn::unhandledException()`. Thread-safe.
FN_EXPORT void write(const Category& category, int priority, const Tag& tag, const Site& site, String text) noexcept;

/// Writes a brace-formatted message. A format that fails at run time is logged with its error.
FN_EXPORT void writeFormatted(const Category& category, int priority, const Tag& tag, const Site& site,
    fmt::string_view format, fmt::format_args arguments) noexcept;

/// The same, with the format checked at compile time.
template <typename... Arguments>
void writeChecked(const Category& category, int priority, const Tag& tag, const Site& site,
    fmt::format_string<Arguments...> format, Arguments&&... arguments) noexcept
{
    writeFormatted(category, priority, tag, site, format, fmt::make_format_args(arguments...));
}

/// Writes a printf-formatted message.
FN_EXPORT void writePrintf(const Category& category, int priority, const Tag& tag, const Site& site, const char* format,
    ...) noexcept __attribute__((format(printf, 5, 6)));

} // namespace fn::logging

/// Costs one load and a compare if no sink wants `category` at `priority`; the arguments are evaluated only if one does.
/// `tag` is a Tag; `file` a stable name such as "libs/core/data_util", never a build path.
#define FN_LOG_TO(category, priority, tag, file, ...) \
    do { \
        const ::fn::logging::Category& fnLogCategory = (category); \
        if (fnLogCategory.wants(priority)) [[unlikely]] \
            ::fn::logging::writeChecked( \
                fnLogCategory, priority, tag, ::fn::logging::Site { file, __LINE__, __func__ }, __VA_ARGS__); \
    } while (false)

/// The same with a printf format.
#define FN_LOGF_TO(category, priority, tag, file, ...) \
    do { \
        const ::fn::logging::Category& fnLogCategory = (category); \
        if (fnLogCategory.wants(priority)) [[unlikely]] \
            ::fn::logging::writePrintf( \
                fnLogCategory, priority, tag, ::fn::logging::Site { file, __LINE__, __func__ }, __VA_ARGS__); \
    } while (false)
