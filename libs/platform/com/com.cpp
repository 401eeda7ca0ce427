#include "platform/com/com.h"
#include "platform/com/com_backend.h"
#include <atomic>
#include <fmt/format.h>
#include <string_view>

namespace platform {
namespace {

std::atomic<ComBackend*>& currentBackend()
{
    static auto& programs = *new ComBackend; // What has been made with it may be freed at the very end.
    static std::atomic<ComBackend*> current = &programs;
    return current;
}

ComBackend& backend() { return *currentBackend(); }

} // namespace

HRESULT CoInitializeEx(void* reserved, DWORD mode) { return backend().coInitializeEx(reserved, mode); }

void CoUninitialize() { backend().coUninitialize(); }

HRESULT CoCreateInstance(REFCLSID clsid, IUnknown* outer, DWORD context, REFIID iid, void** object)
{
    return backend().coCreateInstance(clsid, outer, context, iid, object);
}

HRESULT CoGetObject(const OLECHAR* moniker, BIND_OPTS* options, REFIID iid, void** object)
{
    return backend().coGetObject(moniker, options, iid, object);
}

BSTR SysAllocString(const OLECHAR* text)
{
    if (!text) return nullptr;
    return SysAllocStringLen(text, static_cast<UINT>(std::u16string_view(text).size()));
}

BSTR SysAllocStringLen(const OLECHAR* text, UINT length) { return backend().sysAllocStringLen(text, length); }

void SysFreeString(BSTR text) { backend().sysFreeString(text); }

HRESULT VariantChangeType(VARIANT* target, const VARIANT* source, WORD flags, VARTYPE type)
{
    return backend().variantChangeType(target, source, flags, type);
}

int StringFromGUID2(REFGUID guid, OLECHAR* text, int length)
{
    constexpr int units = 39;
    if (!text || length < units) return 0;
    const auto& last = guid.Data4;
    const auto characters = fmt::format("{{{:08X}-{:04X}-{:04X}-{:02X}{:02X}-{:02X}{:02X}{:02X}{:02X}{:02X}{:02X}}}",
        guid.Data1, guid.Data2, guid.Data3, last[0], last[1], last[2], last[3], last[4], last[5], last[6], last[7]);
    for (const char character : characters) *text++ = static_cast<OLECHAR>(character);
    *text = 0;
    return units;
}

ScopedComBackend::ScopedComBackend(ComBackend& backend) : _previous(*currentBackend().exchange(&backend)) { }

ScopedComBackend::~ScopedComBackend() { currentBackend() = &_previous; }

} // namespace platform
