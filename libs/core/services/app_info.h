#pragma once
#include "base/exceptions.h"
#include "base/export.h"
#include "base/string.h"
#include "foundation/duration.h"
#include <memory>

namespace core {

/// Which application this is, in which version, on which system and in which installation.
class FN_EXPORT AppInfo {
public:
    /// The applications that share this library. The numbers travel in the environment to child processes.
    enum class App : int { Skyfold = 0, Lumenhall = 1 };

    AppInfo() = default;

    /// Says which application this process and those started from it belong to, and has `fn::PathManager` name the folders
    /// of this process after it. Call it first thing in `main()`: it changes the environment, and an instance that exists already
    /// stays as it is.
    static void initialize(App app);

    /// The instance of the process, made at the first call and never destroyed. Where neither this process nor its parent
    /// has called `initialize()` that is reported as a broken invariant, and `fn::RuntimeException` is thrown.
    static AppInfo& instance();
    static AppInfo* find(); ///< The same, but null where nobody has called `initialize()`.

    fn::String applicationShortName() const { return _shortName; } ///< Without blanks.
    fn::String folderName() const { return _shortName.toLower(); } ///< Of its folders below the user's own.
    fn::String applicationDisplayName() const { return _displayName; } ///< For people.
    fn::String applicationPublicVersion() const { return _publicVersion; } ///< For people.
    double applicationInternalVersion() const { return _internalVersion; }

    /// The system whose calls the services are written against.
    fn::String operatingSystemName() const { return "Windows"; }
    fn::String operatingSystemVersion() const; ///< "6.2", with a service pack "6.1 (Service Pack 1)"; "?" if unknown.

    /// Identifies this installation: a UUID, made once and kept in a preferences file. Empty, with a log line, as long as
    /// that file can not be read; where it is missing and can not be written, a new one that only this process knows. Several
    /// processes that make it at the same time keep one each: ask once in the main process before others start. Never throws.
    fn::String instanceId();

    /// Age of the file that keeps `instanceId()`; zero before there is one.
    fn::Duration installationDuration() const;

private:
    static std::unique_ptr<AppInfo> make(App app);
    AppInfo(const char* shortName, const char* displayName, const char* publicVersion, double internalVersion);

    fn::String _shortName;
    fn::String _displayName;
    fn::String _publicVersion;
    double _internalVersion = 0;
    fn::String _instanceId; // Empty until first asked for.
};

} // namespace core
