#include "core/services/app_nap_preventer.h"

// Not inline: whoever holds one is built against no system in particular.

namespace core {

AppNapPreventer::AppNapPreventer() = default;
AppNapPreventer::AppNapPreventer(const AppNapPreventer&) = default;
AppNapPreventer& AppNapPreventer::operator=(const AppNapPreventer&) = default;
AppNapPreventer::~AppNapPreventer() = default;

} // namespace core
