#pragma once
#include "base/string.h"

namespace fn {

/// A UUID, kept as its text.
class FN_EXPORT UUID {
public:
    explicit UUID(String text) : _text(std::move(text)) { } ///< Takes the text as it is.
    const String& toString() const noexcept { return _text; } ///< Lower case, 8-4-4-4-12.

private:
    String _text;
};

/// Makes random (version 4) UUIDs. Thread-safe.
class FN_EXPORT UUIDGenerator {
public:
    UUID createOne(); ///< A new random one. Thread-safe.
    static UUIDGenerator& defaultGenerator(); ///< This process's.
};

} // namespace fn
