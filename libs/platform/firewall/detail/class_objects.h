#pragma once
#include "platform/com/detail/class_table.h"

/// The classes of the firewall: each makes one object and hands it out as `iid`.
namespace platform::detail {

HRESULT makeManager(Rights rights, REFIID iid, void** object);
HRESULT makeAuthorizedApplication(Rights rights, REFIID iid, void** object);
HRESULT makePolicy(Rights rights, REFIID iid, void** object);
HRESULT makeRule(Rights rights, REFIID iid, void** object);

} // namespace platform::detail
