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
/// The root folder of an installation holds a marker file, programs in `bin/` and modules in `modules/`. In a build tree
/// programs are in `programs/`, modules beside it in `modules/`, and resources are read from the source tree.
class FN_EXPORT PathManager {
public:
    enum Type : int {
        ExecutableFolder = 0, ///< The folder of this process's program.
        DesktopFolder = 3, ///< The user's desktop, or the home folder if there is none.
        PreferencesFolder = 7, ///< Mode 0700; each `getPath()` makes it if it is missing.
        ResourceFolder = 8, ///< Root of the installation, or the source's resource folder.
        LogFolder = 9, ///< Mode 0700.
    };

    static PathManager& instance();

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

    /// Whether this process's program belongs to an installation.
    bool hasInstalledLayout() const;

    /// Sets the name of this application's folders inside the user's folders. Initially the name prefix.
    void setApplicationName(const String& name);

    /// Replaces the folder of that type by another one, until the next call; no value gives the type its own folder again.
    void overrideFolder(int type, std::optional<String> folder);

private:
    PathManager();
    String folder(int type) const;
    std::optional<String> overriddenFolder(int type) const;
    String applicationName() const;

    const String _namePrefix;
    mutable std::mutex _mutex;
    String _applicationName; // Guarded by _mutex.
    std::map<int, String> _overrides; // Guarded by _mutex.
};

} // namespace fn
