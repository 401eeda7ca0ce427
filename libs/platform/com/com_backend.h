#pragma once
#include "platform/com/com.h"
#include "platform/com/variant.h"

namespace platform {

/// What stands behind the calls of `com.h`, `bstr.h` and `variant.h`. The methods here are what a program gets; a test
/// derives from it and counts, or lets a call fail. Thread-safe.
class FN_EXPORT ComBackend {
public:
    virtual HRESULT coInitializeEx(void* reserved, DWORD mode);
    virtual void coUninitialize();
    virtual HRESULT coCreateInstance(REFCLSID clsid, IUnknown* outer, DWORD context, REFIID iid, void** object);
    virtual HRESULT coGetObject(const OLECHAR* moniker, BIND_OPTS* options, REFIID iid, void** object);
    virtual BSTR sysAllocStringLen(const OLECHAR* text, UINT length);
    virtual void sysFreeString(BSTR text);
    virtual HRESULT variantChangeType(VARIANT* target, const VARIANT* source, WORD flags, VARTYPE type);
    virtual ~ComBackend();
};

/// For tests: the calls go to `backend`, which must live longer, while this lives. Nested ones end in reverse order, and
/// what one has made goes before its end.
class FN_EXPORT ScopedComBackend {
public:
    explicit ScopedComBackend(ComBackend& backend);
    ScopedComBackend(const ScopedComBackend&) = delete;
    ScopedComBackend& operator=(const ScopedComBackend&) = delete;
    ~ScopedComBackend();

private:
    ComBackend& _previous;
};

} // namespace platform
