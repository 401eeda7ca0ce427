#pragma once
#include "platform/windows_types.h"

namespace platform {

/// Whether a result tells success, as `S_FALSE` does.
constexpr bool SUCCEEDED(HRESULT result) noexcept { return result >= 0; }
constexpr bool FAILED(HRESULT result) noexcept { return result < 0; }

/// The result for one of the system's error numbers.
constexpr HRESULT HRESULT_FROM_WIN32(DWORD error) noexcept
{
    return error == 0 ? 0 : static_cast<HRESULT>(0x80070000U | (error & 0xFFFFU));
}

inline constexpr HRESULT S_OK = 0;
inline constexpr HRESULT S_FALSE = 1;
inline constexpr auto E_UNEXPECTED = static_cast<HRESULT>(0x8000FFFFU);
inline constexpr auto E_NOINTERFACE = static_cast<HRESULT>(0x80004002U);
inline constexpr auto E_POINTER = static_cast<HRESULT>(0x80004003U);
inline constexpr auto E_FAIL = static_cast<HRESULT>(0x80004005U);
inline constexpr auto E_ACCESSDENIED = static_cast<HRESULT>(0x80070005U);
inline constexpr auto E_OUTOFMEMORY = static_cast<HRESULT>(0x8007000EU);
inline constexpr auto E_INVALIDARG = static_cast<HRESULT>(0x80070057U);
inline constexpr auto RPC_E_CHANGED_MODE = static_cast<HRESULT>(0x80010106U); ///< COM is in the other mode already.
inline constexpr auto CO_E_NOTINITIALIZED = static_cast<HRESULT>(0x800401F0U);
inline constexpr auto REGDB_E_CLASSNOTREG = static_cast<HRESULT>(0x80040154U);
inline constexpr auto MK_E_SYNTAX = static_cast<HRESULT>(0x800401E4U); ///< A moniker of an unknown form.
inline constexpr auto DISP_E_TYPEMISMATCH = static_cast<HRESULT>(0x80020005U);

inline constexpr DWORD ERROR_FILE_NOT_FOUND = 2;
inline constexpr DWORD ERROR_CANCELLED = 1223; ///< The user has said no.
inline constexpr DWORD ERROR_FILE_CORRUPT = 1392;

} // namespace platform
