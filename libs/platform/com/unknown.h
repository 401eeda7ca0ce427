#pragma once
#include "base/export.h"
#include "platform/com/guid.h"

namespace platform {

inline constexpr IID IID_IUnknown { 0x00000000, 0x0000, 0x0000, { 0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46 } };
inline constexpr IID IID_IDispatch { 0x00020400, 0x0000, 0x0000, { 0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46 } };

/// The functions of every object. A caller who gets an interface pointer from a call owns one reference, and gives it back with
/// `Release()`. A call borrows the pointers that are passed to it.
class FN_EXPORT IUnknown {
public:
    /// The object as another interface, with a reference of its own; `E_NOINTERFACE` and null if the object has no such interface.
    virtual HRESULT QueryInterface(REFIID iid, void** object) = 0;

    /// Both return the number of references, for diagnostics. The last release deletes the object.
    virtual ULONG AddRef() = 0;
    virtual ULONG Release() = 0;

protected:
    ~IUnknown() = default;
};

/// An object that a VARIANT can hold. Calls by name are not offered here.
class FN_EXPORT IDispatch : public IUnknown {
protected:
    ~IDispatch() = default;
};

} // namespace platform
