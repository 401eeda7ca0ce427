#pragma once
#include "base/string.h"

namespace fn {

/// A path cut at its last '/'.
struct FN_EXPORT Path {
    String directory; ///< "" for a bare name, "/" for an entry of the root.
    String fileName; ///< With its extension. Empty if the path ends in '/'.

    static Path parsePath(const String& path); ///< Takes a path apart; asks the system nothing.
};

} // namespace fn
