#pragma once
#include "platform/com/variant.h"

/// The older firewall interfaces: programs are admitted by a list, for both directions alike. The calls that this layer's users need
/// work as those of the system that they come from, but on a file of the user, see README.md.
namespace platform {

inline constexpr CLSID CLSID_NetFwMgr { 0x304CE942, 0x6E39, 0x40D8,
    { 0x94, 0x3A, 0xB9, 0x13, 0xC4, 0x0C, 0x9C, 0xD4 } };
inline constexpr CLSID CLSID_NetFwAuthorizedApplication { 0xEC9846B3, 0x2762, 0x4A6B,
    { 0xA2, 0x14, 0x6A, 0xCB, 0x60, 0x34, 0x62, 0xD2 } };

inline constexpr IID IID_INetFwMgr { 0xF7898AF5, 0xCAC4, 0x4632, { 0xA2, 0xEC, 0xDA, 0x06, 0xE5, 0x11, 0x1A, 0xF2 } };
inline constexpr IID IID_INetFwPolicy { 0xD46D2478, 0x9AC9, 0x4008,
    { 0x9D, 0xC7, 0x55, 0x63, 0xCE, 0x55, 0x36, 0xCC } };
inline constexpr IID IID_INetFwProfile { 0x174A0DDA, 0xE9F9, 0x449D,
    { 0x99, 0x3B, 0x21, 0xAB, 0x66, 0x7C, 0xA4, 0x56 } };
inline constexpr IID IID_INetFwAuthorizedApplications { 0x644EFD52, 0xCCF9, 0x486C,
    { 0x97, 0xA2, 0x39, 0xF3, 0x52, 0x57, 0x0B, 0x30 } };
inline constexpr IID IID_INetFwAuthorizedApplication { 0xB5E64FFA, 0xC2C5, 0x444E,
    { 0xA3, 0x01, 0xFB, 0x5E, 0x00, 0x01, 0x80, 0x50 } };

/// A program that may communicate. A new object is enabled. An object from the list is a copy.
class FN_EXPORT INetFwAuthorizedApplication : public IDispatch {
public:
    virtual HRESULT put_Name(BSTR name) = 0;
    virtual HRESULT put_ProcessImageFileName(BSTR path) = 0;
    virtual HRESULT get_Enabled(VARIANT_BOOL* enabled) = 0;

protected:
    ~INetFwAuthorizedApplication() = default;
};

class FN_EXPORT INetFwAuthorizedApplications : public IDispatch {
public:
    /// Records a copy of `application`, which replaces an entry with the same path. `E_INVALIDARG` without a path, or for an
    /// object that this layer has not made.
    virtual HRESULT Add(INetFwAuthorizedApplication* application) = 0;

    /// `HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND)` and null if the path is not in the list; upper and lower case differ.
    virtual HRESULT Item(BSTR path, INetFwAuthorizedApplication** application) = 0;

protected:
    ~INetFwAuthorizedApplications() = default;
};

class FN_EXPORT INetFwProfile : public IDispatch {
public:
    virtual HRESULT get_FirewallEnabled(VARIANT_BOOL* enabled) = 0; ///< Whether on for all current networks.
    virtual HRESULT get_AuthorizedApplications(INetFwAuthorizedApplications** applications) = 0;

protected:
    ~INetFwProfile() = default;
};

class FN_EXPORT INetFwPolicy : public IDispatch {
public:
    virtual HRESULT get_CurrentProfile(INetFwProfile** profile) = 0;

protected:
    ~INetFwPolicy() = default;
};

/// The root, `CLSID_NetFwMgr`.
class FN_EXPORT INetFwMgr : public IDispatch {
public:
    virtual HRESULT get_LocalPolicy(INetFwPolicy** policy) = 0;

protected:
    ~INetFwMgr() = default;
};

} // namespace platform
