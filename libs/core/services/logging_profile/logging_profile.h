#pragma once
#include "base/auto_ptr.h"
#include "base/exceptions.h"
#include "base/ref_counted.h"
#include "base/string.h"
#include "foundation/logging/category.h"
#include "foundation/logging/message.h"
#include "foundation/logging/sink.h"
#include <cstdint>
#include <set>
#include <unordered_map>
#include <vector>

namespace core {

/// One destination of log messages, and the choice of messages that go there. A new profile takes none: its root threshold is 0.
///
/// `log()` and the const accessors may be called by several threads at once, but not while one of them changes the profile: a
/// profile is set up before its sink gets messages. A later change (while no message is being logged) counts from the next
/// `fn::logging::CategoryManager::reload()`.
class FN_EXPORT LoggingProfile final : public fn::RefCountedObject {
public:
    using Priority = fn::logging::Message::Priority; ///< 1 is the highest; see docs/logging.md.
    using ThresholdMap = std::unordered_map<fn::String, Priority>; ///< Thresholds by the names of categories.

    LoggingProfile() = default;

    const fn::String& name() const noexcept { return _name; } ///< For people.
    void setName(fn::String name) { _name = std::move(name); } ///< For people.

    const fn::String& description() const noexcept { return _description; } ///< For people.
    void setDescription(fn::String description) { _description = std::move(description); } ///< For people.

    /// The name of the profile's file, without folder. It decides the destination.
    const fn::String& fileName() const noexcept { return _fileName; }
    /// Decides where messages go; see docs/logging.md.
    void setFileName(fn::String fileName) { _fileName = std::move(fileName); }

    bool enabled() const noexcept { return _enabled; } ///< Whether it is used.
    void setEnabled(bool enabled) { _enabled = enabled; } ///< Decides whether it is used.

    bool simple() const noexcept { return _simple; } ///< Texts alone, without time and source.
    /// Decides whether texts are written alone, without time and source.
    void setSimple(bool simple) { _simple = simple; }

    bool verbose() const noexcept { return _verbose; } ///< Used only while verbose logging is allowed.
    /// Decides whether it is used only while verbose logging is switched on.
    void setVerbose(bool verbose) { _verbose = verbose; }

    /// The highest priority number that is taken of a category, if neither it nor a parent has a threshold.
    Priority rootThreshold() const noexcept { return _rootThreshold; }
    /// For all categories without a threshold of their own.
    void setRootThreshold(Priority priority) { _rootThreshold = priority; }

    /// By category name, in lower case. A threshold counts for the categories below that have none of their own.
    const ThresholdMap& thresholdMap() const noexcept { return _thresholdMap; }
    void setCategoryThreshold(const fn::String& category, Priority priority); ///< For a category and those below it.

    /// The threshold of that category: its own, else that of the nearest parent that has one, else the root's. Capitals
    /// in the category's name do not matter.
    Priority threshold(const fn::logging::Category& category) const;

    /// Texts of tags. If there are any, only their messages are taken; the empty text stands for messages without a tag.
    std::vector<fn::String>& allowedTags() noexcept { return _allowedTags; }
    const std::vector<fn::String>& allowedTags() const noexcept { return _allowedTags; }

    /// Texts of tags whose messages are not taken, even if `allowedTags()` has them.
    std::vector<fn::String>& forbiddenTags() noexcept { return _forbiddenTags; }
    const std::vector<fn::String>& forbiddenTags() const noexcept { return _forbiddenTags; }

    /// Message texts that are dropped, except at priority 1.
    const std::set<fn::String>& filters() const noexcept { return _filters; }
    void addFilter(const fn::String& text); ///< Drops messages with exactly this text, except at priority 1.
    bool hasFilter(const fn::String& text) const; ///< Whether messages with this text are dropped.

    /// The sink that writes the messages which the profile takes.
    const fn::AutoPtr<fn::logging::Sink>& sink() const noexcept { return _sink; }
    void setSink(fn::AutoPtr<fn::logging::Sink> sink); ///< Null is reported as a broken invariant and changes nothing.

    /// Passes the message on if the profile takes it, whether or not the profile is enabled. Throws what the sink
    /// throws, and `fn::NullPointerException` without one.
    void log(const fn::logging::Category& category, const fn::logging::Message& message) const;

private:
    ~LoggingProfile() override;
    bool takesTag(const fn::String& tag) const;

    fn::String _name;
    fn::String _description;
    fn::String _fileName;
    bool _enabled = false;
    bool _simple = false;
    bool _verbose = false;
    Priority _rootThreshold = static_cast<Priority>(0);
    ThresholdMap _thresholdMap;
    std::vector<fn::String> _allowedTags;
    std::vector<fn::String> _forbiddenTags;
    std::set<fn::String> _filters;
    std::set<std::uint32_t> _filterHashes; // Hashes of `_filters`, which spare comparing most texts.
    fn::AutoPtr<fn::logging::Sink> _sink;
};

} // namespace core
