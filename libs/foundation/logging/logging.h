#pragma once
// Everything a class needs to log: categories and the macros.
#include "foundation/logging/category.h"
#include "foundation/logging/category_manager.h"
#include "foundation/logging/message.h"
#include <algorithm>
#include <fmt/format.h>
#include <string_view>

namespace fn::logging {

/// Where a message comes from. `file` is a stable name, the source file's without its ending, never a build path.
struct Site {
    const char* file; ///< The source, as the compiler calls it.
    int line; ///< From 1.
    const char* function; ///< The function's name.
};

/// The name of a source file without its ending.
template <std::size_t Size> struct SourceName {
    /// Takes what stands before the last dot.
    consteval SourceName(const char (&file)[Size]) { std::copy_n(file, std::string_view(file, Size).rfind('.'), text); }
    char text[Size] {}; ///< With a zero behind it.
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

/// Names the category of the lines that a source file writes by `FN_LOG`, once, in one of its namespaces:
///
///     FN_LOG_CATEGORY("library.catalogue");
///     ...
///     FN_LOG(Info, "Found {} files", count);
///
/// They come from the file's name without its ending. Not for headers.
#define FN_LOG_CATEGORY(name) \
    namespace { \
    [[maybe_unused]] constexpr auto& fnFileLogCategory = ::fn::logging::category<name>; \
    [[maybe_unused]] constexpr ::fn::logging::SourceName fnFileLogSource(__FILE_NAME__); \
    } \
    static_assert(true)

/// Writes a brace-formatted line of that priority (Error, Warning, Fixme, Info, Debug, Log, Trace) to the file's category. Costs one
/// load and a compare if no sink wants it; the arguments are evaluated only if one does.
#define FN_LOG(priority, ...) \
    FN_LOG_TO(fnFileLogCategory(), ::fn::logging::priority, ::fn::logging::Tag(), fnFileLogSource.text, __VA_ARGS__)

/// The same with a printf format.
#define FN_LOGF(priority, ...) \
    FN_LOGF_TO(fnFileLogCategory(), ::fn::logging::priority, ::fn::logging::Tag(), fnFileLogSource.text, __VA_ARGS__)

/// For a category, tag or name of one's own. Costs one load and a compare if no sink wants `category` at `priority`; the arguments are evaluated only if one does.
/// `tag` is a Tag; `file` a stable name such as "libs/core/data_util", never a build path; `priority` may be computed.
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
