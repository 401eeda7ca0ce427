#pragma once
#include <cstdint>
#include <cstring>
#include <memory>
#include <span>

namespace bench::floor {

/// A frame is this header (little-endian, as the machine is), the body, and filling up to the size asked for.
struct FrameHeader {
    std::uint32_t length; // Of what follows these 4 bytes.
    std::uint16_t target; // The participant it is for, or `everybody`.
    std::uint16_t source;
    std::uint32_t bodyBytes;
};
inline constexpr std::size_t headerBytes = sizeof(FrameHeader);
inline constexpr std::size_t lengthBytes = 4;
inline constexpr std::uint16_t everybody = 0xffff; // But the sender.
inline constexpr std::uint16_t hub = 0xfffe; // Greetings go there, and their answers come from there.

/// A piece of a shared buffer.
struct Bytes {
    std::shared_ptr<std::uint8_t[]> buffer;
    std::uint8_t* data = nullptr;
    std::size_t size = 0;
};

/// One whole frame in memory.
struct Frame : Bytes {
    FrameHeader header() const
    {
        FrameHeader result;
        std::memcpy(&result, data, headerBytes);
        return result;
    }
    std::span<std::uint8_t> body() const { return { data + headerBytes, header().bodyBytes }; }
};

/// Lays out frames one behind the other in large buffers, so that those written in one loop turn are one piece of
/// memory.
class FrameWriter {
public:
    /// A frame of `frameBytes` in all (more if the body needs it) whose body is still to be filled in.
    Frame make(std::uint16_t target, std::uint16_t source, std::size_t bodyBytes, std::size_t frameBytes);

private:
    Bytes _free;
};

} // namespace bench::floor
