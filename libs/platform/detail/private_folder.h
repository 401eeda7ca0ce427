#pragma once
#include "base/file_descriptor.h"
#include <cerrno>
#include <optional>
#include <string_view>

/// Files of the user that no other user can change, or put others in their place.
namespace platform::detail {

/// Throws the `fn::IOException` "Could not `action` `path`: ..." with ErrnoInfo.
[[noreturn]] void failAt(std::string_view action, std::string_view path, int error = errno);

/// An open folder that belongs to this user and that no other user may write to: nobody can lead a call in it to another place.
/// A call that fails throws `fn::IOException` with ErrnoInfo, unless it says something else.
class PrivateFolder {
public:
    /// Empty if there is no such folder.
    static std::optional<PrivateFolder> find(const fn::String& path);

    /// Makes the folder, and the folders that lead there, if they are missing: for the user alone.
    static PrivateFolder findOrMake(const fn::String& path);

    int get() const noexcept { return _descriptor.get(); }
    const fn::String& path() const noexcept { return _path; }

    /// Opens a file, not through a link and without waiting. Only the user can read and write a file that this call makes, whatever
    /// the process's mask. On failure the result owns no descriptor, and `errno` tells the reason.
    fn::FileDescriptor open(const fn::String& name, int flags) const;

    void sync() const; ///< Waits until the names in the folder are on the disk.

private:
    PrivateFolder(const fn::String& path, fn::FileDescriptor descriptor);

    fn::String _path;
    fn::FileDescriptor _descriptor;
};

/// A new file under a temporary name. The destructor removes the file, unless it was renamed.
class UnfinishedFile {
public:
    UnfinishedFile(const PrivateFolder& folder, fn::String name); ///< Borrows `folder`.
    UnfinishedFile(const UnfinishedFile&) = delete;
    UnfinishedFile& operator=(const UnfinishedFile&) = delete;
    ~UnfinishedFile();

    const char* name() const noexcept { return _name.c_str(); }
    void write(std::string_view bytes); ///< Writes all bytes, and waits until they are on the disk.

private:
    const PrivateFolder& _folder;
    const fn::String _name;
    const fn::FileDescriptor _file;
};

} // namespace platform::detail
