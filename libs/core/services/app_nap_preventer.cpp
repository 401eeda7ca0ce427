#include "core/services/app_nap_preventer.h"

// Not inline, so that code that uses the class is the same on every system.

namespace core {

AppNapPreventer::AppNapPreventer() = default;
AppNapPreventer::AppNapPreventer(const AppNapPreventer&) = default;
AppNapPreventer& AppNapPreventer::operator=(const AppNapPreventer&) = default;
AppNapPreventer::~AppNapPreventer() = default;

} // namespace core
