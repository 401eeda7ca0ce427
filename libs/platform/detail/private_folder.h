#pragma once
#include "base/file_descriptor.h"
#include <cerrno>
#include <optional>
#include <string_view>

/// Files of the user that no other user can change, or put others in their place.
namespace platform::detail {

/// Throws the `fn::IOException` "Could not `action` `path`: ..." with ErrnoInfo.
[[noreturn]] void failAt(std::string_view action, std::string_view path, int error = errno);

/// A folder that is this user's and that nobody else may write to, opened: what is done in it can not be led elsewhere.
/// What fails throws `fn::IOException` with ErrnoInfo unless it says something else.
class PrivateFolder {
public:
    /// Empty if there is no such folder.
    static std::optional<PrivateFolder> find(const fn::String& path);

    /// Makes it, and those that lead there, where they are missing: for the user alone.
    static PrivateFolder findOrMake(const fn::String& path);

    int get() const noexcept { return _descriptor.get(); }
    const fn::String& path() const noexcept { return _path; }

    /// Opens a file, not through a link and without waiting for anybody. One that `flags` make is the user's alone,
    /// whatever the process's mask. On failure the result owns nothing, and `errno` tells.
    fn::FileDescriptor open(const fn::String& name, int flags) const;

    void sync() const; ///< Waits until the names in it are on the disk.

private:
    PrivateFolder(const fn::String& path, fn::FileDescriptor descriptor);

    fn::String _path;
    fn::FileDescriptor _descriptor;
};

/// A new file on its way to its name: it goes at the end, unless it was renamed.
class UnfinishedFile {
public:
    UnfinishedFile(const PrivateFolder& folder, fn::String name); ///< Borrows `folder`.
    UnfinishedFile(const UnfinishedFile&) = delete;
    UnfinishedFile& operator=(const UnfinishedFile&) = delete;
    ~UnfinishedFile();

    const char* name() const noexcept { return _name.c_str(); }
    void write(std::string_view bytes); ///< All of them, and onto the disk.

private:
    const PrivateFolder& _folder;
    const fn::String _name;
    const fn::FileDescriptor _file;
};

} // namespace platform::detail
