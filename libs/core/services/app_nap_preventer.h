#pragma once
#include "base/export.h"

namespace core {

/// While an object of this class exists, the system does not slow down this process in the background. It does nothing here,
/// since this system never slows down a background process.
class FN_EXPORT AppNapPreventer {
public:
    AppNapPreventer();
    AppNapPreventer(const AppNapPreventer&);
    AppNapPreventer& operator=(const AppNapPreventer&);
    ~AppNapPreventer(); // NOLINT(performance-trivially-destructible): its callers need not know that it does nothing.
};

} // namespace core
