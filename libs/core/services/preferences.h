#pragma once
#include "base/exceptions.h"
#include "base/export.h"
#include "base/string.h"
#include "foundation/value.h"

namespace core {

/// One document of settings, kept in one file: the members of a JSON map without its braces.
///
/// Values of the document may be boxed fractions, timestamps (to the second), byte arrays and typed byte arrays at any
/// depth; the file holds them as maps with the key "__type__", which is therefore not free for other use.
///
/// Belongs to one thread at a time. Several processes may share a file: each save replaces the whole file in one step, also the
/// changes that another process has saved since `reload()`.
class FN_EXPORT Preferences {
public:
    /// An empty document; the file is not read before `reload()`.
    explicit Preferences(const fn::String& path);

    fn::Value& root() noexcept { return _root; } ///< The document, to be changed in place. Leave it a map.
    const fn::Value& root() const noexcept { return _root; } ///< The document, to be read.

    /// Replaces the document by that of the file; a missing file is an empty document. On errors the document stays as it
    /// was: `fn::FileException`, `fn::DataFormatException` for bad text, an unknown tag or a root that is no map,
    /// `fn::RangeException` for tagged values with members of the wrong type.
    void reload();

    /// Writes the document and reads the file back. If that fails, the failure goes to `fn::unhandledException()` and the
    /// document is written once more. Errors of writing are thrown and leave the old file in place:
    /// `fn::FileException`, `fn::DataFormatException` for values that the file can not hold, `fn::RangeException` for a map
    /// with the key "__type__".
    void save();

private:
    void saveInternal() const;
    fn::Value loadInternal() const;

    fn::String _path;
    fn::Value _root;
};

} // namespace core
