#pragma once
#include "base/string.h"
#include <cstdint>
#include <vector>

namespace fn {

/// One frame in readable form. `address` is the offset in its module (so that it fits 32 bits and can be looked up in the file).
struct ResolvedFrame {
    std::uint32_t address = 0;
    String moduleName; ///< Base name of the file the code comes from.
    String symbolName;
    String fileName; ///< Empty where unknown.
    std::int32_t fileLine = 0;
    friend bool operator==(const ResolvedFrame&, const ResolvedFrame&) = default;
};

/// A trace in readable form, innermost frame first; also one that came from another process.
struct ResolvedStackTrace {
    std::vector<ResolvedFrame> frames;
};

/// Code addresses of this process, innermost first. Capturing is cheap; resolving happens only when somebody looks.
class FN_EXPORT CapturedStackTrace {
public:
    /// The frames from the caller's outwards, less the innermost `skipFrames`. At most some 60.
    static CapturedStackTrace capture(int skipFrames = 0);

    bool empty() const noexcept { return _addresses.empty(); }
    const std::vector<void*>& addresses() const noexcept { return _addresses; }

    /// Names and offsets from the modules' symbol tables, cached by address. Thread-safe.
    ResolvedStackTrace resolve() const;

private:
    std::vector<void*> _addresses;
};

} // namespace fn
