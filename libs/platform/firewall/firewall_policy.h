#pragma once
#include "platform/com/variant.h"

/// The newer firewall interfaces: rules with a direction, settings for each kind of network. The calls that this layer's users need
/// work as those of the system that they come from, but on a file of the user, see README.md.
namespace platform {

inline constexpr CLSID CLSID_NetFwPolicy2 { 0xE2B3C97F, 0x6AE1, 0x41AC,
    { 0x81, 0x7A, 0xF6, 0xF9, 0x21, 0x66, 0xD7, 0xDD } };
inline constexpr CLSID CLSID_NetFwRule { 0x2C5BC43E, 0x3369, 0x4C33,
    { 0xAB, 0x0C, 0xBE, 0x94, 0x69, 0x67, 0x7A, 0xF4 } };

inline constexpr IID IID_INetFwPolicy2 { 0x98325047, 0xC671, 0x4174,
    { 0x8D, 0x81, 0xDE, 0xFC, 0xD3, 0xF0, 0x31, 0x86 } };
inline constexpr IID IID_INetFwRules { 0x9C4C6277, 0x5027, 0x441E, { 0xAF, 0xAE, 0xCA, 0x1F, 0x54, 0x2D, 0xA0, 0x09 } };
inline constexpr IID IID_INetFwRule { 0xAF230D27, 0xBABA, 0x4E42, { 0xAC, 0xED, 0xF5, 0x24, 0xF2, 0x2C, 0xFC, 0xE2 } };

/// Kinds of networks, as bits.
enum NET_FW_PROFILE_TYPE2 : LONG {
    NET_FW_PROFILE2_DOMAIN = 1,
    NET_FW_PROFILE2_PRIVATE = 2,
    NET_FW_PROFILE2_PUBLIC = 4,
    NET_FW_PROFILE2_ALL = 0x7FFFFFFF,
};
enum NET_FW_RULE_DIRECTION : LONG { NET_FW_RULE_DIR_IN = 1, NET_FW_RULE_DIR_OUT = 2 };
enum NET_FW_ACTION : LONG { NET_FW_ACTION_BLOCK = 0, NET_FW_ACTION_ALLOW = 1 };
inline constexpr LONG NET_FW_IP_PROTOCOL_ANY = 256;

/// A new rule is disabled, and blocks incoming packets of any protocol on all networks for every program. Rules from the list are
/// copies. A text with a 0 in it is `E_INVALIDARG`.
class FN_EXPORT INetFwRule : public IDispatch {
public:
    virtual HRESULT get_Name(BSTR* name) = 0; ///< The caller frees the text, here and in all getters.
    virtual HRESULT put_Name(BSTR name) = 0;
    virtual HRESULT put_Description(BSTR description) = 0;
    virtual HRESULT get_ApplicationName(BSTR* path) = 0;
    virtual HRESULT put_ApplicationName(BSTR path) = 0;
    virtual HRESULT get_Protocol(LONG* protocol) = 0;
    virtual HRESULT get_Direction(NET_FW_RULE_DIRECTION* direction) = 0;
    virtual HRESULT put_Direction(NET_FW_RULE_DIRECTION direction) = 0;
    virtual HRESULT get_Enabled(VARIANT_BOOL* enabled) = 0;
    virtual HRESULT put_Enabled(VARIANT_BOOL enabled) = 0;
    virtual HRESULT put_Profiles(LONG profiles) = 0;
    virtual HRESULT put_Action(NET_FW_ACTION action) = 0;

protected:
    ~INetFwRule() = default;
};

class FN_EXPORT INetFwRules : public IDispatch {
public:
    virtual HRESULT get_Count(LONG* count) = 0;

    /// Appends a copy of `rule`, also if there is an equal rule. `E_INVALIDARG` for an object that this layer has not made.
    virtual HRESULT Add(INetFwRule* rule) = 0;

    /// Gives an IEnumVARIANT of the rules, as `VT_DISPATCH`.
    virtual HRESULT get__NewEnum(IUnknown** enumeration) = 0; // NOLINT(bugprone-reserved-identifier): their name.

protected:
    ~INetFwRules() = default;
};

/// The root, `CLSID_NetFwPolicy2`.
class FN_EXPORT INetFwPolicy2 : public IDispatch {
public:
    virtual HRESULT get_CurrentProfileTypes(LONG* types) = 0; ///< Bits of NET_FW_PROFILE_TYPE2.
    virtual HRESULT get_FirewallEnabled(NET_FW_PROFILE_TYPE2 type, VARIANT_BOOL* enabled) = 0; ///< `type` is one bit.
    virtual HRESULT get_Rules(INetFwRules** rules) = 0;

protected:
    ~INetFwPolicy2() = default;
};

} // namespace platform
