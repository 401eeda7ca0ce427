#pragma once
#include "platform/com/bstr.h"

namespace core::detail {

/// Owns a text of COM.
class Bstr {
public:
    Bstr() = default;
    /// Empty if there is no memory for the text. Bytes that are no UTF-8 become U+FFFD.
    explicit Bstr(const fn::String& text) : _text(platform::allocText(text)) { }
    Bstr(const Bstr&) = delete;
    Bstr& operator=(const Bstr&) = delete;
    ~Bstr() { platform::SysFreeString(_text); }

    platform::BSTR get() const noexcept { return _text; }
    explicit operator bool() const noexcept { return _text != nullptr; }
    platform::BSTR* receive() noexcept { return &_text; } ///< A call puts a text here, once, if this is empty.

private:
    platform::BSTR _text = nullptr;
};

} // namespace core::detail
