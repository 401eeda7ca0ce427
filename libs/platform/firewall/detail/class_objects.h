#pragma once
#include "platform/com/detail/class_table.h"

/// The classes of the firewall: each makes one object and hands it out as `iid`.
namespace platform::detail {

HRESULT makeManager(REFIID iid, void** object);
HRESULT makeAuthorizedApplication(REFIID iid, void** object);
HRESULT makePolicy(REFIID iid, void** object);
HRESULT makeRule(REFIID iid, void** object);

} // namespace platform::detail
