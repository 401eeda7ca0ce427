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

    /// Declares the application that this process and the processes started from it belong to; `fn::PathManager` names the folders
    /// of this process after it. To be called first in `main()`: it changes the environment, and does not change an instance that
    /// exists already.
    static void initialize(App app);

    /// The instance of the process, made at the first call and never destroyed. If neither this process nor its parent has
    /// called `initialize()`, a broken invariant is reported, and `fn::RuntimeException` thrown.
    static AppInfo& instance();
    static AppInfo* find(); ///< The instance; null if neither process has called `initialize()`.

    fn::String applicationShortName() const { return _shortName; } ///< Without blanks.
    fn::String folderName() const { return _shortName.toLowerCase(); } ///< The name of its folders below the user's.
    fn::String applicationDisplayName() const { return _displayName; } ///< For people.
    fn::String applicationPublicVersion() const { return _publicVersion; } ///< For people.
    double applicationInternalVersion() const { return _internalVersion; }

    /// The system whose calls the services are written against.
    fn::String operatingSystemName() const { return "Windows"; }
    fn::String operatingSystemVersion() const; ///< "6.2", with a service pack "6.1 (Service Pack 1)"; "?" if unknown.

    /// Identifies this installation: a UUID, made once and kept in a preferences file. Empty, with a log line, while that file can
    /// not be read; a UUID of this process alone if the file is missing and can not be written. Processes that make the UUID at
    /// the same time get different ones: ask once in the main process before others start. Never throws.
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
    fn::String _instanceId; // Empty before the first `instanceId()`.
};

} // namespace core
