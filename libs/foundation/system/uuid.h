#pragma once
#include "base/string.h"

namespace fn {

/// A UUID, kept as its text.
class FN_EXPORT UUID {
public:
    explicit UUID(String text) : _text(std::move(text)) { }
    const String& toString() const noexcept { return _text; } ///< Lower case, 8-4-4-4-12.

private:
    String _text;
};

/// Makes random (version 4) UUIDs. Thread-safe.
class FN_EXPORT UUIDGenerator {
public:
    UUID createOne();
    static UUIDGenerator& defaultGenerator();
};

} // namespace fn
