#pragma once
#include "base/byte_array.h"
#include "base/exceptions.h"
#include "base/export.h"
#include "foundation/value.h"

namespace fn {
class InputStream;
class OutputStream;
} // namespace fn

namespace core {

/// Bytes with the MIME type of their contents, "" if it is unknown. A boxed object keeps its type; assigning it to a plain
/// `fn::ByteArray` drops the type.
class FN_EXPORT TypedByteArray : public fn::ByteArray {
public:
    explicit TypedByteArray(unsigned int size) : fn::ByteArray(size) { } ///< Zero bytes without a type.
    /// No bytes of that type.
    explicit TypedByteArray(fn::String mimeType) : _mimeType(std::move(mimeType)) { }
    /// Shares the bytes.
    TypedByteArray(const fn::ByteArray& bytes, const fn::String& mimeType) : fn::ByteArray(bytes), _mimeType(mimeType)
    {
    }
    /// Takes the bytes over.
    TypedByteArray(fn::ByteArray&& bytes, const fn::String& mimeType)
        : fn::ByteArray(std::move(bytes)),
          _mimeType(mimeType)
    {
    }

    const fn::String& mimeType() const noexcept { return _mimeType; } ///< "image/jpeg", for example; nothing checks it.
    void setMimeType(const fn::String& mimeType) { _mimeType = mimeType; } ///< Does not touch the bytes.

    /// The MIME type, a blank and the bytes; without a type the bytes alone.
    fn::String toString() const;

    /// By bytes, then by type.
    friend bool operator==(const TypedByteArray&, const TypedByteArray&) noexcept = default;
    friend std::strong_ordering operator<=>(const TypedByteArray&, const TypedByteArray&) noexcept = default;

    /// Two MessagePack values: the type as text, then the bytes.
    void serialize(fn::OutputStream& stream) const;

    /// `fn::RangeException` "Invalid boxed type" if the second value is not bytes, `fn::EndOfStreamException` if one is
    /// missing.
    static TypedByteArray deserialize(fn::InputStream& stream);

private:
    fn::String _mimeType;
};

} // namespace core

template <> inline constexpr bool fn::isBoxable<core::TypedByteArray> = true;
