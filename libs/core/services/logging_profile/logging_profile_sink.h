#pragma once
#include "base/object_vector.h"
#include "core/services/logging_profile/logging_profile.h"
#include "foundation/logging/log_target.h"
#include "foundation/logging/sink.h"
#include "foundation/system/published.h"
#include <atomic>
#include <memory>

namespace core {

/// Hands each message to the profiles of a folder (docs/logging.md). Thread-safe; a message takes no lock, also while
/// another thread reloads.
class FN_EXPORT LoggingProfileSink final : public fn::logging::Sink {
public:
    using Priority = LoggingProfile::Priority; ///< As in the profile.

    static constexpr std::uint64_t logFileBytes = 1'048'576; ///< A log of this size makes way for a new one.
    static constexpr int logFileCount = 9; ///< So many files are kept of each log, the current one included.

    /// Makes a sink without profiles. The names of its log files begin with `baseName`.
    explicit LoggingProfileSink(const fn::String& baseName);

    fn::ObjectVector<LoggingProfile> profiles() const; ///< Also those not enabled, in the order of their file names.

    /// Reads the profiles of the folder and uses them from now on. Failures go to `fn::unhandledException()`: a file that can not
    /// be read is left out; if the folder can not be read, the profiles stay as they were.
    void reload(const fn::String& directory);

    /// Whether verbose logging is switched on.
    bool allowVerboseLogging() const noexcept { return _allowVerboseLogging.load(std::memory_order_relaxed); }
    void setAllowVerboseLogging(bool allow); ///< Whether verbose profiles take messages. Initially not.

    Priority maxRootThreshold() const; ///< The highest of all profiles, enabled or not; 0 without any.

    /// By category name, in lower case: the highest threshold that a profile, enabled or not, gives it.
    LoggingProfile::ThresholdMap maxThresholdMap() const;

    int threshold(const fn::logging::Category& category) const override;
    void logMessage(const fn::logging::Category& category, const fn::logging::Message& message) override;

private:
    /// The result of one reload. Immutable.
    struct Generation {
        fn::ObjectVector<LoggingProfile> profiles;
        Priority maxRootThreshold = static_cast<Priority>(0);
        LoggingProfile::ThresholdMap maxThresholdMap;
    };

    ~LoggingProfileSink() override;
    fn::ObjectVector<LoggingProfile> loadProfiles(const fn::String& directory) const;
    fn::AutoPtr<LoggingProfile> loadProfile(const fn::String& path) const;
    fn::AutoPtr<fn::LogTarget> createTarget(const LoggingProfile& profile) const;
    static void filterProfiles(fn::ObjectVector<LoggingProfile>& profiles);
    bool isUsed(const LoggingProfile& profile) const;

    const fn::String _baseName;
    std::atomic<bool> _allowVerboseLogging { false };
    fn::Published<Generation> _generation { std::make_shared<Generation>() };
};

} // namespace core
