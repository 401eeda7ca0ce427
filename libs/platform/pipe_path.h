#pragma once
#include "base/exceptions.h"
#include "base/string.h"
#include "platform/scoped_override.h"
#include <sys/un.h>

namespace platform {

/// Whether `path` names a pipe: `\\.\pipe\` with a name behind it.
FN_EXPORT bool isPipeName(std::string_view path) noexcept;

/// The path of `name` in a folder that only this user can enter, for pipes and locks that the user's processes share. The call makes
/// the folder if it does not exist: `core-pipes` in `$XDG_RUNTIME_DIR`, or `core-pipes-UID` in the folder for temporary files.
/// Processes of one user that see other values of `XDG_RUNTIME_DIR`, or without it of `TMPDIR`, do not meet: each folder has pipes
/// and locks of its own.
///
/// `fn::IOException` with ErrnoInfo if the name is empty or could lead out of the folder ('/', NUL, '..'), or if the folder
/// belongs to, or is open to, another user.
FN_EXPORT fn::String privatePath(std::string_view name);

/// The path of the socket that stands for the pipe `\\.\pipe\NAME`: the private path of NAME. `fn::IOException` with ErrnoInfo as
/// for `privatePath()`, or if `pipeName` is no pipe name.
FN_EXPORT fn::String pipePath(const fn::String& pipeName);

/// The address of a socket at `path`. `fn::IOException` (ENAMETOOLONG) if `path` is longer than the system's 107 bytes.
FN_EXPORT sockaddr_un socketAddress(const fn::String& path);

/// For tests: the folder of private paths, which must exist.
using ScopedPipeFolder = ScopedOverride<privatePath, fn::String>;
extern template class FN_EXPORT ScopedOverride<privatePath, fn::String>;

} // namespace platform
