#pragma once
#include "base/exceptions.h"
#include "base/export.h"
#include "base/string.h"

namespace core {

/// Names one application: its folders, locks, pipes and logs carry the id, and two applications on one machine meet nowhere. Child
/// processes find it in their environment.
struct FN_EXPORT AppIdentity {
    fn::String id; ///< 1 to 32 of a-z, 0-9, '-' and '_'; the first one is a letter.
    fn::String name; ///< For people: one line of text, at most 64 bytes, without '/'.
    fn::String version; ///< For people: at most 64 visible ASCII characters, without ';'.

    bool operator==(const AppIdentity&) const = default;

    /// Returns if all parts are as they must be. `fn::RuntimeException` that says which part is not, what it is, and what it may be.
    void check() const;
    static bool isId(const fn::String& text); ///< Whether it is as an id must be.

    fn::String toText() const; ///< "ID;NAME;VERSION".
    /// What `toText()` gave. `fn::RuntimeException` for any other text.
    static AppIdentity fromText(const fn::String& text);
};

} // namespace core
