#pragma once
#include "base/exceptions.h"
#include "base/export.h"
#include "base/string.h"
#include "core/services/app_identity.h"
#include "foundation/duration.h"
#include <memory>

namespace core {

/// Which application this is, in which version, on which system and in which installation.
///
/// The main process decides it (`initialize()`); its child processes read it in their environment: "CORE_APPLICATION" holds what
/// `AppIdentity::toText()` gives. For the two applications of the family "ManagerAppType" holds their number, too, and decides.
class FN_EXPORT AppInfo {
public:
    /// The two applications of one family, which differ in their folders and share their command pipe (`commonId()`). The numbers
    /// travel in the environment to child processes.
    enum class App : int { Skyfold = 0, Lumenhall = 1 };

    AppInfo() = default;

    /// Declares the application that this process and the processes started from it belong to; `fn::PathManager` names the folders
    /// of this process after it. To be called first in `main()`: it changes the environment, and does not change an instance that
    /// exists already.
    static void initialize(App app);
    /// Declares any other application, or one of the two by its id. `fn::RuntimeException` that says which part of `identity` is not as
    /// it must be, or that the id is one of the family's with another name or version.
    static void initialize(const AppIdentity& identity);
    static AppIdentity identityOf(App app); ///< Of one of the two.

    /// The instance of the process, made at the first call and never destroyed. If neither this process nor its parent has
    /// called `initialize()`, a broken invariant is reported, and `fn::RuntimeException` thrown.
    static AppInfo& instance();
    static AppInfo* find(); ///< The instance; null if neither process has called `initialize()`.
    static void
    adoptEnvironment(); ///< For a child process: `fn::PathManager` names the folders after the instance, if there is one.

    fn::String applicationShortName() const { return _shortName; } ///< Without blanks.
    AppIdentity identity() const { return { _id, _displayName, _publicVersion }; } ///< What it was declared with.
    fn::String id() const { return _id; } ///< The name of its folders below the user's.
    /// The id under which this application and others of its family meet: names their command pipe, their locks and their pipes. The id
    /// itself where there is no family; the family's if the process belongs to no application.
    static fn::String commonId();
    fn::String applicationDisplayName() const { return _displayName; } ///< For people.
    fn::String applicationPublicVersion() const { return _publicVersion; } ///< For people.
    double applicationInternalVersion() const { return _internalVersion; } ///< 0 but in the family.

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
    explicit AppInfo(App app);
    explicit AppInfo(const AppIdentity& identity);
    static std::unique_ptr<AppInfo> ofEnvironment();
    static void nameFolders(const fn::String& id, const fn::String& commonId);

    fn::String _id;
    fn::String _shortName;
    fn::String _displayName;
    fn::String _publicVersion;
    double _internalVersion = 0;
    fn::String _instanceId; // Empty before the first `instanceId()`.
};

} // namespace core
