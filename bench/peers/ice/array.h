#pragma once
#include <Ice/Ice.h>
#include <cstdint>
#include <span>

namespace bench::ice {

/// Bytes that are not copied on the way into a request or out of it.
using Array = std::pair<const Ice::Byte*, const Ice::Byte*>;

inline std::span<const std::uint8_t> bytes(const Array& array) { return { array.first, array.second }; }
inline Array array(std::span<const std::uint8_t> bytes) { return { bytes.data(), bytes.data() + bytes.size() }; }

inline Ice::InitializationData settings()
{
    Ice::InitializationData data;
    data.properties = Ice::createProperties();
    data.properties->setProperty("Ice.MessageSizeMax", "16384"); // KiB; the default stops short of 1 MiB and a header.
    return data;
}

} // namespace bench::ice
