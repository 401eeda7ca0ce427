#pragma once
#include "base/export.h"

namespace core {

/// While one of them exists the system does not slow this process down for being in the background. This system does no
/// such thing, so it does nothing.
class FN_EXPORT AppNapPreventer {
public:
    AppNapPreventer();
    AppNapPreventer(const AppNapPreventer&);
    AppNapPreventer& operator=(const AppNapPreventer&);
    ~AppNapPreventer();
};

} // namespace core
