#pragma once
#include "foundation/io/transform_output_stream.h"
#include "foundation/json/hooks.h"

namespace core::detail {

/// Takes the outer braces and one level of indentation off indented JSON: the first four bytes ("{", CRLF and a tab) and
/// the first byte of each further line.
class OutputTransform final : public fn::Transform {
public:
    void transform(const std::uint8_t* data, std::size_t size, fn::OutputStream& target) override;

private:
    std::size_t _bytesToDrop = 4;
};

/// Writes the boxed types that preferences hold as tagged maps.
class Serializer final : public fn::json::ValueSerializer {
public:
    bool handles(const fn::Value& value) override;
    fn::Value serialize(const fn::Value& value) override;
};

/// Makes boxed values of tagged maps.
class Deserializer final : public fn::json::ValueDeserializer {
public:
    fn::Value deserialize(fn::Value value) override;
};

} // namespace core::detail
