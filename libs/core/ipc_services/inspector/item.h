#pragma once
#include "foundation/value.h"

namespace core {

/// One line of a page of an inspector.
struct Item {
    fn::String text;
    fn::Value action; ///< The action of the page that the line leads to; nil if it leads nowhere.
};

} // namespace core
