#include "foundation/system/path_manager.h"
#include "base/exceptions.h"
#include "foundation/io/file.h"
#include "foundation/io/path.h"
#include "foundation/system/process_local.h"
#include "platform/pipe_path.h"
#include <cerrno>
#include <dlfcn.h>
#include <filesystem>
#include <glib.h>
#include <glib/gstdio.h>
#include <unistd.h>

namespace fn {
namespace {

constexpr const char* markerName = "installed";
constexpr const char* sharedFolder = "/share/skyfold-core";

String executableFolder()
{
    // Read once: the link's target changes its name when the running program is replaced.
    static const String folder = Path::parsePath(std::filesystem::read_symlink("/proc/self/exe").string()).directory;
    return folder;
}

String desktopFolder()
{
    const char* desktop = g_get_user_special_dir(G_USER_DIRECTORY_DESKTOP);
    return desktop && g_file_test(desktop, G_FILE_TEST_IS_DIR) ? desktop : g_get_home_dir();
}

/// Also what this user may not see counts as there: who opens it hears why he cannot.
bool exists(const String& path) { return ::access(path.c_str(), F_OK) == 0 || errno == EACCES; }

/// The folder of what this library is installed with, some levels above the library; else that of the source tree.
String resourcesOfLibrary()
{
    Dl_info info {};
    if (::dladdr(reinterpret_cast<const void*>(&PathManager::instance), &info) == 0)
        return CORE_SOURCE_DIR "/resources";
    auto folder =
        std::filesystem::path(info.dli_fname).parent_path(); // lib/, or the system's folder of an architecture in it.
    for (int levels = 0; levels < 2; ++levels) {
        folder = folder.parent_path();
        if (String shared = folder.string() + sharedFolder; exists(shared)) return shared;
    }
    return CORE_SOURCE_DIR "/resources";
}

bool makeFolders(const String& path, int mode) { return g_mkdir_with_parents(path.c_str(), mode) == 0; }

} // namespace

PathManager::PathManager() : _namePrefix("skyfold"), _applicationName(_namePrefix), _family(_namePrefix) { }

PathManager& PathManager::instance()
{
    static ProcessLocal<PathManager> instance([] { return new PathManager; });
    return instance.get();
}

String PathManager::getPath(int type, const String& relative, bool create) const
{
    const auto root = folder(type);
    const auto path = relative.empty() ? root : root + "/" + relative;

    // Other users may not enter the user's own folders; the mode of the other folders follows the process's mask.
    const int mode = type == PreferencesFolder || type == LogFolder || type == DataFolder ? 0700 : 0777;
    // Made without `create`, too: the caller may otherwise make the folder with a wider mode. If this fails, the caller learns it
    // when opening the file.
    if (type == PreferencesFolder) makeFolders(root, mode);
    if (create) {
        const auto wanted = relative.empty() ? root : Path::parsePath(path).directory;
        if (!makeFolders(wanted, mode)) File::handleErrno(wanted);
    }
    return path;
}

String PathManager::folder(int type) const
{
    if (auto folder = overriddenFolder(type)) return *folder;
    switch (type) {
    case ExecutableFolder: return executableFolder();
    case DesktopFolder: return desktopFolder();
    case PreferencesFolder: return String(g_get_user_config_dir()) + "/" + applicationName();
    case ResourceFolder: {
        auto root = installedRoot();
        return root ? *std::move(root) : resourcesOfLibrary();
    }
    case LogFolder: return String(g_get_user_state_dir()) + "/" + applicationName() + "/logs";
    case DataFolder: return String(g_get_user_data_dir()) + "/" + applicationName();
    default: throw with(RangeException("Unknown path type"), DetailInfo { "Type: " + String::number(type) });
    }
}

bool PathManager::hasInstalledLayout() const { return installedRoot().has_value(); }

std::optional<String> PathManager::installedRoot() const
{
    const auto lib = folder(ExecutableFolder) + "/../lib/"; // Before the lock, which `folder()` takes.
    const std::lock_guard guard(_mutex);
    if (_rootOfModule) return _rootOfModule;
    for (const auto* name : { &_applicationName, &_family }) {
        if (auto root = lib + *name; exists(root + "/" + markerName)) return root;
    }
    return std::nullopt;
}

void PathManager::useRootOfModule(const String& library)
{
    const auto root = std::filesystem::absolute(library.toStdString()).parent_path().parent_path().string();
    if (!exists(String(root) + "/" + markerName)) return;
    const std::lock_guard guard(_mutex);
    _rootOfModule = root;
}

String PathManager::privatePath(const String& name) { return platform::privatePath(name); }

void PathManager::setApplicationName(const String& name, const String& family)
{
    const std::lock_guard guard(_mutex);
    _applicationName = name;
    _family = family;
}

String PathManager::applicationName() const
{
    const std::lock_guard guard(_mutex);
    return _applicationName;
}

void PathManager::overrideFolder(int type, std::optional<String> folder)
{
    const std::lock_guard guard(_mutex);
    if (folder)
        _overrides.insert_or_assign(type, *std::move(folder));
    else
        _overrides.erase(type);
}

std::optional<String> PathManager::overriddenFolder(int type) const
{
    const std::lock_guard guard(_mutex);
    const auto found = _overrides.find(type);
    return found == _overrides.end() ? std::nullopt : std::optional(found->second);
}

} // namespace fn
