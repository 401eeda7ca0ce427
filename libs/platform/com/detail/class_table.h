#pragma once
#include "platform/com/guid.h"
#include "platform/com/unknown.h"

namespace platform::detail {

enum class Rights { User, Administrator };

/// A class whose objects this layer can make.
struct ClassEntry {
    CLSID id;
    HRESULT (*make)(Rights rights, REFIID iid, void** object); ///< May throw.
    const char* elevatedAction; ///< What an administrator's object can do; null: there is none.
};

/// The class of that id, or null.
const ClassEntry* findClass(REFCLSID id) noexcept;

} // namespace platform::detail
