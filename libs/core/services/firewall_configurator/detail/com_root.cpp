#include "core/services/firewall_configurator/detail/com_root.h"
#include <algorithm>
#include <array>
#include <string_view>

namespace core::detail {

using namespace platform;

namespace {

constexpr std::u16string_view elevationPrefix = u"Elevation:Administrator!new:";
constexpr std::size_t monikerUnits = 300;
constexpr int guidUnits = 39;
static_assert(elevationPrefix.size() + guidUnits <= monikerUnits);

} // namespace

bool initializeCom(HRESULT& result)
{
    result = CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    return SUCCEEDED(result) || result == RPC_E_CHANGED_MODE;
}

void uninitializeCom(HRESULT& result)
{
    if (SUCCEEDED(result)) CoUninitialize();
    result = comNotInitialized;
}

HRESULT createObject(REFCLSID clsid, REFIID iid, void** object)
{
    return CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, iid, object);
}

HRESULT createElevated(REFCLSID clsid, REFIID iid, void** object)
{
    std::array<OLECHAR, monikerUnits> moniker {};
    auto* const end = std::ranges::copy(elevationPrefix, moniker.begin()).out;
    if (StringFromGUID2(clsid, end, guidUnits) == 0) return E_UNEXPECTED;
    BIND_OPTS3 options {};
    options.cbStruct = bindOptions3Bytes;
    options.dwClassContext = CLSCTX_LOCAL_SERVER;
    return CoGetObject(moniker.data(), &options, iid, object);
}

} // namespace core::detail
