#pragma once
#include "foundation/value.h"

namespace core {

/// One line of what an inspector shows.
struct Item {
    fn::String text;
    fn::Value action; ///< What to inspect where the line is followed; nil: it leads nowhere.
};

} // namespace core
