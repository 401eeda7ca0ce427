#pragma once
#include "base/export.h"
#include "foundation/value.h"
#include <cstdint>
#include <vector>

/// The values that the modules send each other about a scan. `fromValue()` throws `fn::RangeException` for a value that does not
/// come from `toValue()`.
namespace media {

/// A regular file that the walk has found.
struct FN_EXPORT FoundFile {
    fn::String path; ///< Below the scanned folder. Any bytes but NUL: names need not be text.
    std::int64_t size = 0; ///< Bytes.
    std::int64_t modified = 0; ///< Nanoseconds since 1970-01-01 UTC.

    fn::Value toValue() const;
    static FoundFile fromValue(const fn::Value& value);
};

/// A file that the scanner has read.
struct FN_EXPORT ScannedFile {
    FoundFile file;
    fn::String hash; ///< As `core::ResourceHash` gives it; empty if the file could not be read.

    fn::Value toValue() const;
    static ScannedFile fromValue(const fn::Value& value);
};

/// One scan of one folder, which may take several attempts.
struct FN_EXPORT ScanId {
    std::int64_t folder = 0;
    std::int64_t number = 0; ///< Ascends from scan to scan of the folder.

    fn::Value toValue() const;
    static ScanId fromValue(const fn::Value& value);
};

/// How far the scanner has come.
struct FN_EXPORT ScanProgress {
    int processId = 0; ///< The scanner's.
    bool walking = true; ///< Files are still being looked for: `found` grows.
    std::int64_t found = 0; ///< Files found.
    std::int64_t done = 0; ///< Files of these that are in the catalogue.

    bool isHalfWay() const { return !walking && done * 2 >= found; }

    fn::Value toValue() const;
    static ScanProgress fromValue(const fn::Value& value);
};

/// Paths to show to people: the number of all, and the names of the first few.
struct FN_EXPORT PathSample {
    static constexpr std::size_t mostNamed = 5;

    std::int64_t count = 0;
    std::vector<fn::String> paths;

    void add(const fn::String& path);

    fn::Value toValue() const;
    static PathSample fromValue(const fn::Value& value);
};

/// How many files of one kind there are, and their size.
struct FN_EXPORT KindTotal {
    fn::String kind; ///< "audio", "video", ...
    std::int64_t files = 0;
    std::int64_t bytes = 0;

    fn::Value toValue() const;
    static KindTotal fromValue(const fn::Value& value);
};

/// What the catalogue knows about a folder at the end of a scan.
struct FN_EXPORT Totals {
    std::int64_t files = 0; ///< Regular files found, also those that could not be read.
    std::int64_t bytes = 0; ///< Their sizes in sum.
    std::int64_t distinct = 0; ///< Different contents among those that could be read.
    std::int64_t hashed = 0; ///< Files that this scan has read.
    PathSample unreadable; ///< Files that were found, but could not be read.
    std::vector<KindTotal> kinds; ///< The largest first.

    /// Files that have the content of another file. An unreadable file is no duplicate.
    std::int64_t duplicates() const { return files - unreadable.count - distinct; }

    fn::Value toValue() const;
    static Totals fromValue(const fn::Value& value);
};

template <typename T> fn::Value toValues(const std::vector<T>& items)
{
    fn::Value::Array values;
    values.reserve(items.size());
    for (const auto& item : items) values.push_back(item.toValue());
    return values;
}

template <typename T> std::vector<T> fromValues(const fn::Value& values)
{
    std::vector<T> items;
    items.reserve(values.size());
    for (const auto& value : values.elements()) items.push_back(T::fromValue(value));
    return items;
}

} // namespace media
