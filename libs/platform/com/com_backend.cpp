#include "platform/com/com_backend.h"
#include "platform/com/detail/class_table.h"
#include "platform/com/detail/com_object.h"
#include "platform/com/detail/elevation.h"
#include <algorithm>
#include <string_view>

namespace platform {
namespace {

constexpr std::u16string_view elevationPrefix = u"Elevation:Administrator!new:";

/// What COM is on a thread.
struct Apartment {
    DWORD mode = 0;
    int initializations = 0;
};

Apartment& apartment()
{
    thread_local Apartment value;
    return value;
}

/// A digit's value, or -1.
int hexadecimalDigit(OLECHAR unit)
{
    constexpr std::u16string_view digits = u"0123456789ABCDEF";
    const auto upper = unit >= u'a' && unit <= u'f' ? static_cast<OLECHAR>(unit - u'a' + u'A') : unit;
    const auto position = digits.find(upper);
    return position == digits.npos ? -1 : static_cast<int>(position);
}

/// Reads the form that `StringFromGUID2()` writes. Whether it is that form.
bool parseGuid(std::u16string_view text, GUID& guid)
{
    constexpr std::u16string_view form = u"{########-####-####-####-############}";
    if (text.size() != form.size()) return false;
    BYTE bytes[16] = {};
    int digits = 0;
    for (std::size_t i = 0; i < form.size(); ++i) {
        if (form[i] != u'#' && form[i] != text[i]) return false;
        if (form[i] != u'#') continue;
        const int digit = hexadecimalDigit(text[i]);
        if (digit < 0) return false;
        bytes[digits / 2] = static_cast<BYTE>(bytes[digits / 2] << 4 | digit);
        ++digits;
    }
    guid.Data1 = DWORD { bytes[0] } << 24 | DWORD { bytes[1] } << 16 | DWORD { bytes[2] } << 8 | bytes[3];
    guid.Data2 = static_cast<WORD>(bytes[4] << 8 | bytes[5]);
    guid.Data3 = static_cast<WORD>(bytes[6] << 8 | bytes[7]);
    std::copy(bytes + 8, bytes + 16, guid.Data4);
    return true;
}

bool isBoundLocally(const BIND_OPTS* options)
{
    return options && options->cbStruct == bindOptions3Bytes
        && static_cast<const BIND_OPTS3*>(options)->dwClassContext == CLSCTX_LOCAL_SERVER;
}

} // namespace

ComBackend::~ComBackend() = default;

HRESULT ComBackend::coInitializeEx(void* reserved, DWORD mode)
{
    if (reserved || (mode != COINIT_APARTMENTTHREADED && mode != COINIT_MULTITHREADED)) return E_INVALIDARG;
    auto& mine = apartment();
    if (mine.initializations > 0 && mine.mode != mode) return RPC_E_CHANGED_MODE;
    mine.mode = mode;
    return ++mine.initializations == 1 ? S_OK : S_FALSE;
}

void ComBackend::coUninitialize()
{
    if (apartment().initializations > 0) --apartment().initializations;
}

HRESULT ComBackend::coCreateInstance(REFCLSID clsid, IUnknown* outer, DWORD context, REFIID iid, void** object)
{
    if (!object) return E_POINTER;
    *object = nullptr;
    if (apartment().initializations == 0) return CO_E_NOTINITIALIZED;
    const auto* const entry = detail::findClass(clsid);
    if (!entry || (context & CLSCTX_INPROC_SERVER) == 0) return REGDB_E_CLASSNOTREG;
    if (outer) return CLASS_E_NOAGGREGATION;
    return detail::guarded([&] { return entry->make(detail::Rights::User, iid, object); });
}

HRESULT ComBackend::coGetObject(const OLECHAR* moniker, BIND_OPTS* options, REFIID iid, void** object)
{
    if (!object) return E_POINTER;
    *object = nullptr;
    if (apartment().initializations == 0) return CO_E_NOTINITIALIZED;
    if (!moniker || !isBoundLocally(options)) return E_INVALIDARG;
    const std::u16string_view name(moniker);
    CLSID clsid {};
    if (!name.starts_with(elevationPrefix) || !parseGuid(name.substr(elevationPrefix.size()), clsid)) {
        return MK_E_SYNTAX;
    }
    const auto* const entry = detail::findClass(clsid);
    if (!entry) return REGDB_E_CLASSNOTREG;
    if (!entry->elevatedAction) return CO_E_ELEVATION_DISABLED;
    return detail::guarded([&] {
        if (!detail::isElevationGranted(entry->elevatedAction)) return HRESULT_FROM_WIN32(ERROR_CANCELLED);
        return entry->make(detail::Rights::Administrator, iid, object);
    });
}

} // namespace platform
