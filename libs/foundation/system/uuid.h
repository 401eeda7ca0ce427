#pragma once
#include "base/string.h"

namespace fn {

/// A UUID, 16 bytes.
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
    virtual ~UUIDGenerator();
    virtual UUID createOne() = 0;
    static UUIDGenerator& defaultGenerator();
    /// Replaces the default generator (borrowed; null restores it): a run can be repeated with the same ids.
    static void setDefaultGenerator(UUIDGenerator* generator);
};

} // namespace fn
