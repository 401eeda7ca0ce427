#include "foundation/system/path_manager.h"
#include "base/exceptions.h"
#include "foundation/io/file.h"
#include "foundation/io/path.h"
#include "foundation/system/process_local.h"
#include "platform/pipe_path.h"
#include <filesystem>
#include <glib.h>
#include <glib/gstdio.h>
#include <unistd.h>

namespace fn {
namespace {

constexpr const char* markerName = "skyfold.installed";

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

bool makeFolders(const String& path, int mode) { return g_mkdir_with_parents(path.c_str(), mode) == 0; }

} // namespace

PathManager::PathManager() : _namePrefix("skyfold"), _applicationName(_namePrefix) { }

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
    const int mode = type == PreferencesFolder || type == LogFolder ? 0700 : 0777;
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
    case ResourceFolder:
        return hasInstalledLayout() ? folder(ExecutableFolder) + "/.." : String(CORE_SOURCE_DIR "/resources");
    case LogFolder: return String(g_get_user_state_dir()) + "/" + applicationName() + "/logs";
    default: throw with(RangeException("Unknown path type"), DetailInfo { "Type: " + String::number(type) });
    }
}

bool PathManager::hasInstalledLayout() const
{
    return ::access((folder(ExecutableFolder) + "/../" + markerName).c_str(), F_OK) == 0;
}

String PathManager::privatePath(const String& name) { return platform::privatePath(name); }

void PathManager::setApplicationName(const String& name)
{
    const std::lock_guard guard(_mutex);
    _applicationName = name;
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
