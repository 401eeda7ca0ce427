#include "core/services/logging_profile/logging_profile_sink.h"
#include "core/services/logging_profile/detail/profile_reader.h"
#include "core/services/logging_profile/formatted_sink.h"
#include "core/services/logging_profile/simple_sink.h"
#include "core/services/logging_profile/throttled_sink.h"
#include "foundation/io/buffered_input_stream.h"
#include "foundation/io/directory_iterator.h"
#include "foundation/io/file_input_stream.h"
#include "foundation/io/path.h"
#include "foundation/logging/category_manager.h"
#include "foundation/logging/log_console_target.h"
#include "foundation/logging/log_file_target.h"
#include "foundation/system/environment.h"
#include "foundation/system/path_manager.h"
#include "foundation/unhandled_exception.h"
#include <algorithm>

namespace core {
namespace {

constexpr std::size_t bufferBytes = 8192;
constexpr std::string_view consoleName = "console";
constexpr std::string_view memoryName = "memory";

} // namespace

LoggingProfileSink::LoggingProfileSink(const fn::String& baseName) : _baseName(baseName) { }

LoggingProfileSink::~LoggingProfileSink() = default;

fn::ObjectVector<LoggingProfile> LoggingProfileSink::profiles() const { return _generation.read()->profiles; }

LoggingProfileSink::Priority LoggingProfileSink::maxRootThreshold() const
{
    return _generation.read()->maxRootThreshold;
}

LoggingProfile::ThresholdMap LoggingProfileSink::maxThresholdMap() const { return _generation.read()->maxThresholdMap; }

bool LoggingProfileSink::isUsed(const LoggingProfile& profile) const
{
    return profile.enabled() && (allowVerboseLogging() || !profile.verbose());
}

int LoggingProfileSink::threshold(const fn::logging::Category& category) const
{
    int highest = 0;
    const auto generation = _generation.read();
    for (const auto& profile : generation->profiles) {
        if (isUsed(*profile)) highest = std::max<int>(highest, profile->threshold(category));
    }
    return highest;
}

void LoggingProfileSink::logMessage(const fn::logging::Category& category, const fn::logging::Message& message)
{
    const auto generation = _generation.read();
    for (const auto& profile : generation->profiles) {
        if (isUsed(*profile)) profile->log(category, message);
    }
}

void LoggingProfileSink::setAllowVerboseLogging(bool allow)
{
    if (_allowVerboseLogging.exchange(allow, std::memory_order_relaxed) == allow) return;
    fn::logging::CategoryManager::instance().reload();
}

void LoggingProfileSink::reload(const fn::String& directory)
{
    try {
        auto generation = std::make_shared<Generation>();
        generation->profiles = loadProfiles(directory);
        filterProfiles(generation->profiles);
        for (const auto& profile : generation->profiles) {
            generation->maxRootThreshold = std::max(generation->maxRootThreshold, profile->rootThreshold());
            for (const auto& [category, priority] : profile->thresholdMap()) {
                auto& highest = generation->maxThresholdMap.emplace(category, priority).first->second;
                highest = std::max(highest, priority);
            }
        }
        _generation.replace(std::move(generation));
        fn::logging::CategoryManager::instance().reload();
    } catch (...) {
        fn::unhandledException();
    }
}

fn::ObjectVector<LoggingProfile> LoggingProfileSink::loadProfiles(const fn::String& directory) const
{
    fn::ObjectVector<LoggingProfile> profiles;
    for (const auto& entry : fn::DirectoryIterator(directory)) {
        try {
            auto profile = loadProfile(entry.path);
            auto target = createTarget(*profile);
            if (!target) continue;
            fn::AutoPtr<fn::logging::Sink> sink;
            if (profile->simple())
                sink = fn::makeAuto<SimpleSink>(std::move(target));
            else
                sink = fn::makeAuto<FormattedSink>(std::move(target));
            profile->setSink(fn::makeAuto<ThrottledSink>(std::move(sink)));
            profiles.push_back(std::move(profile));
        } catch (...) {
            fn::unhandledException();
        }
    }
    return profiles;
}

fn::AutoPtr<LoggingProfile> LoggingProfileSink::loadProfile(const fn::String& path) const
{
    try {
        auto profile = fn::makeAuto<LoggingProfile>();
        profile->setFileName(fn::Path::parsePath(path).fileName);
        fn::FileInputStream file(fn::FileDescriptor::readRegular(path));
        fn::BufferedInputStream stream(file, bufferBytes);
        readLoggingProfile(stream, *profile);
        return profile;
    } catch (fn::Exception& exception) {
        exception.attach(fn::PathInfo { path });
        throw;
    }
}

/// Null for a profile whose messages go nowhere.
fn::AutoPtr<fn::LogTarget> LoggingProfileSink::createTarget(const LoggingProfile& profile) const
{
    const auto kind = profile.fileName().toLowerCase();
    if (kind.startsWith(consoleName)) return fn::makeAuto<fn::LogConsoleTarget>();
    if (kind.startsWith(memoryName)) return {};

    auto name = _baseName;
    if (profile.fileName() != _baseName) {
        if (!name.empty()) name += ".";
        name += profile.fileName();
    }
    const auto folder = fn::PathManager::instance().getPath(fn::PathManager::LogFolder, true);
    auto target = fn::makeAuto<fn::LogFileTarget>(folder + "/" + name + ".log");
    target->setMaximumSize(logFileBytes);
    target->setMaximumCount(logFileCount);
    return target;
}

/// Leaves at most one console profile: that of the user, else the one for everybody.
void LoggingProfileSink::filterProfiles(fn::ObjectVector<LoggingProfile>& profiles)
{
    const auto userConsole = fn::String(consoleName) + "." + fn::Environment::userName().toLowerCase();
    const LoggingProfile* chosen = nullptr;
    for (const auto& profile : profiles) {
        const auto name = profile->fileName().toLowerCase();
        if (name == userConsole || (name == consoleName && !chosen)) chosen = profile.get();
    }
    std::erase_if(profiles, [chosen](const fn::AutoPtr<LoggingProfile>& profile) {
        return profile->fileName().toLowerCase().startsWith(consoleName) && profile.get() != chosen;
    });
}

} // namespace core
