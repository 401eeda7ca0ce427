#pragma once
#include "platform/com/guid.h"
#include "platform/com/unknown.h"
#include <span>

namespace platform::detail {

/// A class whose objects this layer can make.
struct ClassEntry {
    CLSID id;
    HRESULT (*make)(REFIID iid, void** object); ///< May throw.
    const char* elevatedAction; ///< The action for which the user is asked; null if the class is never elevated.
};

/// The classes of this layer.
std::span<const ClassEntry> classes() noexcept;

} // namespace platform::detail
