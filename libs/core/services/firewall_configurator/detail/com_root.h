#pragma once
#include "core/services/firewall_configurator/detail/com_ptr.h"
#include "platform/com/com.h"

namespace core::detail {

/// The result that stands for an instance which has no `CoInitializeEx()` of its own to undo.
inline constexpr platform::HRESULT comNotInitialized = platform::E_FAIL;

/// Makes COM usable and says whether it is. Sets `result`.
bool initializeCom(platform::HRESULT& result);

/// Undoes the `initializeCom()` that has set `result`, once.
void uninitializeCom(platform::HRESULT& result);

/// Makes an object of this process, or one with an administrator's rights if the user agrees.
platform::HRESULT createObject(platform::REFCLSID clsid, platform::REFIID iid, void** object);
platform::HRESULT createElevated(platform::REFCLSID clsid, platform::REFIID iid, void** object);

inline constexpr bool notElevated = false;

/// Makes an object likewise, and owns it. After success `object` is never empty.
template <typename T>
platform::HRESULT create(bool elevated, platform::REFCLSID clsid, platform::REFIID iid, ComPtr<T>& object)
{
    void* made = nullptr;
    const auto result = elevated ? createElevated(clsid, iid, &made) : createObject(clsid, iid, &made);
    if (platform::FAILED(result)) return result;
    object = ComPtr<T>(static_cast<T*>(made));
    return object ? result : platform::E_UNEXPECTED;
}

} // namespace core::detail
