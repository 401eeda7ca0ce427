#pragma once
#include "base/string.h"
#include <cstdint>
#include <vector>

namespace fn {

/// One frame in readable form. `address` is the offset in its module (so that it fits 32 bits and can be looked up in the file).
struct ResolvedFrame {
    std::uint32_t address = 0; ///< The address in the program, cut to 32 bits.
    String moduleName; ///< The base name of the program or library that holds the code.
    String symbolName; ///< The function's name; empty if nobody knows it.
    String fileName; ///< The source file; empty if it is unknown.
    std::int32_t fileLine = 0; ///< The line in its file, from 1; 0 if nobody knows it.
    friend bool operator==(const ResolvedFrame&, const ResolvedFrame&) = default;
};

/// A trace of this or another process in readable form, innermost frame first.
struct ResolvedStackTrace {
    std::vector<ResolvedFrame> frames; ///< The innermost first.
};

/// Return addresses on a stack of this process, innermost first. Capturing is cheap; `resolve()` looks up the names.
class FN_EXPORT CapturedStackTrace {
public:
    /// The addresses from the caller's frame outwards, without the innermost `skipFrames`. At most some 60.
    static CapturedStackTrace capture(int skipFrames = 0);

    bool empty() const noexcept { return _addresses.empty(); } ///< Whether no trace was taken.
    /// The return addresses, the innermost first.
    const std::vector<void*>& addresses() const noexcept { return _addresses; }

    /// Names and offsets from the modules' symbol tables, cached by address. Thread-safe.
    ResolvedStackTrace resolve() const;

private:
    std::vector<void*> _addresses;
};

} // namespace fn
