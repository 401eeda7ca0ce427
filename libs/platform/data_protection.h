#pragma once
#include "base/string.h"
#include "platform/scoped_override.h"
#include "platform/windows_types.h"
#include <functional>

namespace platform {

struct DATA_BLOB {
    DWORD cbData;
    BYTE* pbData;
};

struct CRYPTPROTECT_PROMPTSTRUCT {
    DWORD cbSize;
    DWORD dwPromptFlags;
    void* hwndApp;
    const char16_t* szPrompt;
};

/// Protects bytes for the current user: only processes of this user can read them again, and changed ones are recognised.
///
/// The bytes are encrypted and authenticated with a random key, which is in a file that only this user can read
/// (`protectionFolder()`). This guards data that leave the machine or fall into the hands of another user (a backup, a
/// synchronised folder, a copied file). It does not guard against the user's own programs, root, or somebody who has a copy of
/// the key file as well. Without the key file no protected bytes can be read any more.
///
/// `pDataOut` gets new memory that the caller frees with `LocalFree()`. Descriptions, additional entropy, prompts and flags
/// are not supported. 0 on failure, for which `dataProtectionFailure()` has the reason. The first call makes the key.
/// Thread-safe.
FN_EXPORT BOOL CryptProtectData(DATA_BLOB* pDataIn, const char16_t* szDataDescr, DATA_BLOB* pOptionalEntropy,
    void* pvReserved, CRYPTPROTECT_PROMPTSTRUCT* pPromptStruct, DWORD dwFlags, DATA_BLOB* pDataOut);

/// Gives the bytes that were protected, in memory that `LocalFree()` wipes. 0 unless `pDataIn` is, whole and unchanged, an output of
/// `CryptProtectData()` with this user's key. Otherwise like `CryptProtectData()`, but never makes a key.
FN_EXPORT BOOL CryptUnprotectData(DATA_BLOB* pDataIn, char16_t** ppszDataDescr, DATA_BLOB* pOptionalEntropy,
    void* pvReserved, CRYPTPROTECT_PROMPTSTRUCT* pPromptStruct, DWORD dwFlags, DATA_BLOB* pDataOut);

/// Wipes and frees memory from the calls above, and nothing else. Null is allowed, and is the result. Thread-safe.
FN_EXPORT void* LocalFree(void* memory);

/// The reason why the last of these calls on this thread has failed, for logs. The text names files, never their content.
FN_EXPORT fn::String dataProtectionFailure();

/// For tests: a function that answers both calls. Its exceptions go to the caller.
using DataProtectionCall = std::function<BOOL(const DATA_BLOB& in, DATA_BLOB& out)>;
using ScopedDataProtection = ScopedOverride<CryptProtectData, DataProtectionCall>;
extern template class FN_EXPORT ScopedOverride<CryptProtectData, DataProtectionCall>;

} // namespace platform
