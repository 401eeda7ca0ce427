#include "api/scan_types.h"

namespace media {

// Types that are sent by the thousand are arrays; the others are maps, which a message dump shows with names.

fn::Value FoundFile::toValue() const { return fn::Value::array({ path, size, modified }); }

FoundFile FoundFile::fromValue(const fn::Value& value)
{
    return { value[0].string(), value[1].to<std::int64_t>(), value[2].to<std::int64_t>() };
}

fn::Value ScannedFile::toValue() const { return fn::Value::array({ file.toValue(), hash }); }

ScannedFile ScannedFile::fromValue(const fn::Value& value)
{
    return { FoundFile::fromValue(value[0]), value[1].string() };
}

fn::Value ScanId::toValue() const { return fn::Value::map({ { "folder", folder }, { "number", number } }); }

ScanId ScanId::fromValue(const fn::Value& value)
{
    return { value.at("folder").to<std::int64_t>(), value.at("number").to<std::int64_t>() };
}

fn::Value ScanProgress::toValue() const
{
    return fn::Value::map({ { "processId", processId }, { "walking", walking }, { "found", found }, { "done", done } });
}

ScanProgress ScanProgress::fromValue(const fn::Value& value)
{
    return { value.at("processId").to<int>(), value.at("walking").toBool(), value.at("found").to<std::int64_t>(),
        value.at("done").to<std::int64_t>() };
}

void PathSample::add(const fn::String& path)
{
    ++count;
    if (paths.size() < mostNamed) paths.push_back(path);
}

fn::Value PathSample::toValue() const
{
    return fn::Value::map({ { "count", count }, { "paths", fn::Value::Array(paths.begin(), paths.end()) } });
}

PathSample PathSample::fromValue(const fn::Value& value)
{
    PathSample sample { value.at("count").to<std::int64_t>(), {} };
    for (const auto& path : value.at("paths").elements()) sample.paths.push_back(path.string());
    return sample;
}

fn::Value KindTotal::toValue() const
{
    return fn::Value::map({ { "kind", kind }, { "files", files }, { "bytes", bytes } });
}

KindTotal KindTotal::fromValue(const fn::Value& value)
{
    return { value.at("kind").string(), value.at("files").to<std::int64_t>(), value.at("bytes").to<std::int64_t>() };
}

fn::Value Totals::toValue() const
{
    return fn::Value::map({ { "files", files }, { "bytes", bytes }, { "distinct", distinct }, { "hashed", hashed },
        { "unreadable", unreadable.toValue() }, { "kinds", toValues(kinds) } });
}

Totals Totals::fromValue(const fn::Value& value)
{
    return { value.at("files").to<std::int64_t>(), value.at("bytes").to<std::int64_t>(),
        value.at("distinct").to<std::int64_t>(), value.at("hashed").to<std::int64_t>(),
        PathSample::fromValue(value.at("unreadable")), fromValues<KindTotal>(value.at("kinds")) };
}

} // namespace media
