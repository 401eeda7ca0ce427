#include "platform/com/com.h"
#include "platform/com/detail/class_table.h"
#include "platform/com/detail/com_object.h"
#include "platform/com/elevation_prompt.h"
#include <algorithm>
#include <fmt/format.h>
#include <string_view>

namespace platform {

template class ScopedOverride<CoGetObject, ElevationPrompt>;

namespace {

constexpr std::u16string_view elevationPrefix = u"Elevation:Administrator!new:";
constexpr int guidUnits = 39;

/// The state of COM on a thread.
struct Apartment {
    DWORD mode = 0;
    int initializations = 0;
};

Apartment& apartment()
{
    thread_local Apartment value;
    return value;
}

bool isBoundLocally(const BIND_OPTS* options)
{
    return options && options->cbStruct == bindOptions3Bytes
        && static_cast<const BIND_OPTS3*>(options)->dwClassContext == CLSCTX_LOCAL_SERVER;
}

/// The class whose elevated objects a moniker names, or null.
const detail::ClassEntry* elevatedClass(std::u16string_view moniker)
{
    for (const auto& entry : detail::classes()) {
        OLECHAR id[guidUnits];
        StringFromGUID2(entry.id, id, guidUnits);
        if (entry.elevatedAction && moniker == std::u16string(elevationPrefix) + id) return &entry;
    }
    return nullptr;
}

bool isElevationGranted(const fn::String& action)
{
    if (const auto prompt = ScopedElevationPrompt::current()) return prompt(action);
    fmt::print(stderr,
        "Refused: a request to {}. The program has no way to ask its user (platform::ScopedElevationPrompt).\n",
        action.view());
    return false;
}

} // namespace

HRESULT CoInitializeEx(void* reserved, DWORD mode)
{
    if (detail::isToFail()) return E_FAIL;
    if (reserved || (mode != COINIT_APARTMENTTHREADED && mode != COINIT_MULTITHREADED)) return E_INVALIDARG;
    auto& mine = apartment();
    if (mine.initializations > 0 && mine.mode != mode) return RPC_E_CHANGED_MODE;
    mine.mode = mode;
    return ++mine.initializations == 1 ? S_OK : S_FALSE;
}

void CoUninitialize()
{
    if (apartment().initializations > 0) --apartment().initializations;
}

HRESULT CoCreateInstance(REFCLSID clsid, IUnknown* outer, DWORD context, REFIID iid, void** object)
{
    if (detail::isToFail()) return E_FAIL;
    if (apartment().initializations == 0) return CO_E_NOTINITIALIZED;
    const auto classes = detail::classes();
    const auto entry = std::ranges::find(classes, clsid, &detail::ClassEntry::id);
    if (entry == classes.end() || context != CLSCTX_INPROC_SERVER || outer) return REGDB_E_CLASSNOTREG;
    return detail::guarded([&] { return entry->make(iid, object); });
}

HRESULT CoGetObject(const OLECHAR* moniker, BIND_OPTS* options, REFIID iid, void** object)
{
    if (detail::isToFail()) return E_FAIL;
    if (apartment().initializations == 0) return CO_E_NOTINITIALIZED;
    if (!isBoundLocally(options)) return E_INVALIDARG;
    const auto* const entry = elevatedClass(moniker);
    if (!entry) return MK_E_SYNTAX;
    return detail::guarded([&] {
        if (!isElevationGranted(entry->elevatedAction)) return HRESULT_FROM_WIN32(ERROR_CANCELLED);
        return entry->make(iid, object);
    });
}

int StringFromGUID2(REFGUID guid, OLECHAR* text, int length)
{
    if (!text || length < guidUnits) return 0;
    const auto& last = guid.Data4;
    const auto characters = fmt::format("{{{:08X}-{:04X}-{:04X}-{:02X}{:02X}-{:02X}{:02X}{:02X}{:02X}{:02X}{:02X}}}",
        guid.Data1, guid.Data2, guid.Data3, last[0], last[1], last[2], last[3], last[4], last[5], last[6], last[7]);
    *std::ranges::copy(characters, text).out = 0;
    return guidUnits;
}

} // namespace platform
