#include "core/services/logging_profile/logging_profile.h"
#include "foundation/assertion.h"
#include <algorithm>

namespace core {
namespace {

/// FNV-1a.
std::uint32_t hash(std::string_view text)
{
    std::uint32_t value = 0x811C9DC5;
    for (const char byte : text) value = (value ^ static_cast<unsigned char>(byte)) * 16'777'619;
    return value;
}

/// In lower case; nothing is copied where it is already.
fn::String lowerCased(const fn::String& name)
{
    const auto isCapital = [](char c) { return c >= 'A' && c <= 'Z'; };
    return std::ranges::any_of(name.view(), isCapital) ? name.toLowerCase() : name;
}

} // namespace

LoggingProfile::~LoggingProfile() = default;

void LoggingProfile::setCategoryThreshold(const fn::String& category, Priority priority)
{
    _thresholdMap.insert_or_assign(category.toLowerCase(), priority);
}

LoggingProfile::Priority LoggingProfile::threshold(const fn::logging::Category& category) const
{
    if (_thresholdMap.empty()) return _rootThreshold;
    for (const auto* next = &category; next; next = next->parent()) {
        const auto found = _thresholdMap.find(lowerCased(next->name()));
        if (found != _thresholdMap.end()) return found->second;
    }
    return _rootThreshold;
}

void LoggingProfile::addFilter(const fn::String& text)
{
    _filters.insert(text);
    _filterHashes.insert(hash(text));
}

bool LoggingProfile::hasFilter(const fn::String& text) const
{
    return _filterHashes.contains(hash(text)) && _filters.contains(text);
}

void LoggingProfile::setSink(fn::AutoPtr<fn::logging::Sink> sink)
{
    if (!FN_ASSERT(sink, fn::sites::profileHasSink)) return;
    _sink = std::move(sink);
}

bool LoggingProfile::takesTag(const fn::String& tag) const
{
    if (std::ranges::find(_forbiddenTags, tag) != _forbiddenTags.end()) return false;
    return _allowedTags.empty() || std::ranges::find(_allowedTags, tag) != _allowedTags.end();
}

void LoggingProfile::log(const fn::logging::Category& category, const fn::logging::Message& message) const
{
    if (!takesTag(message.tag.text)) return;
    if (message.priority > threshold(category)) return;
    if (message.priority != fn::logging::Error && !_filters.empty() && hasFilter(message.text)) return;
    _sink->logMessage(category, message);
}

} // namespace core
