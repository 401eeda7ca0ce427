#include "console/summary.h"
#include "api/text.h"
#include "console/format.h"
#include "foundation/io/byte_array_output_stream.h"
#include "foundation/json/serializer.h"
#include <fmt/format.h>

namespace media {
namespace {

using Text = std::back_insert_iterator<std::string>;

void addCount(Text text, std::string_view name, std::int64_t count, std::string_view rest = {})
{
    fmt::format_to(text, "  {:<12}{:>12}{}{}\n", name, formatCount(count), rest.empty() ? "" : "  ", rest);
}

void addPaths(Text text, std::string_view name, const PathSample& sample)
{
    if (sample.count == 0) return;
    fmt::format_to(text, "{} that could not be read: {}\n", name, formatCount(sample.count));
    for (const auto& path : sample.paths) fmt::format_to(text, "  {}\n", printable(path));
    if (sample.count > static_cast<std::int64_t>(sample.paths.size())) fmt::format_to(text, "  ...\n");
}

} // namespace

std::string summaryText(const Summary& summary)
{
    const auto& totals = summary.totals;
    std::string result;
    const Text text(result);
    addCount(text, "Files", totals.files, formatBytes(totals.bytes));
    for (const auto& [kind, files, bytes] : totals.kinds)
        addCount(text, "  " + kind.toStdString(), files, formatBytes(bytes));
    addCount(text, "Distinct", totals.distinct);
    addCount(text, "Duplicates", totals.duplicates());
    addCount(text, "Read anew", totals.hashed);
    if (summary.relaunches > 0) addCount(text, "Relaunches", summary.relaunches);
    addPaths(text, "Files", totals.unreadable);
    addPaths(text, "Folders", summary.unreadableFolders);
    fmt::format_to(text, "Done in {}.\n", formatTime(summary.time));
    return result;
}

std::string summaryJson(const Summary& summary)
{
    const auto& totals = summary.totals;
    const auto value = fn::Value::map({ { "files", totals.files }, { "bytes", totals.bytes },
        { "distinct", totals.distinct }, { "duplicates", totals.duplicates() }, { "hashed", totals.hashed },
        { "unreadable", totals.unreadable.count }, { "unreadableFolders", summary.unreadableFolders.count },
        { "relaunches", summary.relaunches },
        { "seconds", static_cast<double>(summary.time.totalMilliseconds()) / 1000 } });
    fn::ByteArray bytes;
    fn::ByteArrayOutputStream stream(bytes);
    fn::json::serialize(value, stream);
    stream.flush();
    return std::string(bytes.view()) + "\n";
}

} // namespace media
