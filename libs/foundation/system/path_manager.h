#pragma once
#include "base/exceptions.h"
#include "base/string.h"
#include <concepts>
#include <map>
#include <mutex>
#include <optional>

namespace fn {

/// Knows the folders of the application. Thread-safe.
///
/// An installed application NAME has its program in `<prefix>/bin/` and all else in its root `<prefix>/lib/NAME/`: a file `installed`
/// by which the root is found from the program (`../lib/NAME/installed`), `modules/`, the module loader in `bin/`, and resources such
/// as `logging_profiles/`. The build tree of an application looks the same. In the build tree of this library programs are in
/// `programs/`, modules beside it in `modules/`, and resources are read from the source tree.
class FN_EXPORT PathManager {
public:
    /// The folders that it knows. The numbers are those that settings keep.
    enum Type : int {
        ExecutableFolder = 0, ///< The folder of this process's program.
        DesktopFolder = 3, ///< The user's desktop, or the home folder if there is none.
        PreferencesFolder = 7, ///< Mode 0700; each `getPath()` makes it if it is missing.
        ResourceFolder =
            8, ///< Root of the installed application; else what the library itself has been installed with.
        LogFolder = 9, ///< Mode 0700.
        DataFolder = 32, ///< For what the application keeps of its own: databases, caches. Mode 0700.
    };

    static PathManager& instance(); ///< The only one; made at the first call, never destroyed.

    /// The path of `relative` (may begin with "../") under the folder of that type; "" gives the folder itself. `create` makes the
    /// folders that lead there, except the last part of `relative`; `fn::FileException` if that fails. An unknown type:
    /// `fn::RangeException`.
    String getPath(int type, const String& relative, bool create) const;
    String getPath(int type, std::same_as<bool> auto create) const { return getPath(type, String(), create); }

    /// The path of a file that running processes of this user share, in a folder that only he can enter; his pipes lie there, too.
    /// The folder is made where it does not exist; failing that, or for a name that leads elsewhere: `fn::IOException`.
    static String privatePath(const String& name);

    /// The beginning of the names of this family's programs: "skyfold".
    const String& namePrefix() const noexcept { return _namePrefix; }

    /// Whether this process belongs to an installed application.
    bool hasInstalledLayout() const;

    /// Sets the name of this application's folders inside the user's folders, and of its root; where it has no root of its own it has
    /// that of `family`. Initially both are the name prefix.
    void setApplicationName(const String& name, const String& family);

    /// For the process of a module, whose program is the loader: the root is that of the module's library, `<root>/modules/FILE`, if
    /// there is one.
    void useRootOfModule(const String& library);

    /// Replaces the folder of that type by another one, until the next call; no value gives the type its own folder again.
    void overrideFolder(int type, std::optional<String> folder);

private:
    PathManager();
    String folder(int type) const;
    std::optional<String> overriddenFolder(int type) const;
    std::optional<String> installedRoot() const;
    String applicationName() const;

    const String _namePrefix;
    mutable std::mutex _mutex;
    String _applicationName; // Guarded by _mutex.
    String _family; // Guarded by _mutex.
    std::optional<String> _rootOfModule; // Guarded by _mutex.
    std::map<int, String> _overrides; // Guarded by _mutex.
};

} // namespace fn
