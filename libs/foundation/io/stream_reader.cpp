#include "foundation/io/stream_reader.h"
#include "base/exceptions.h"
#include <array>
#include <string>

namespace fn {

std::size_t StreamReader::tryRead(InputStream& stream, void* data, std::size_t size)
{
    auto* next = static_cast<std::uint8_t*>(data);
    std::size_t done = 0;
    while (done < size) {
        const auto count = stream.read(next + done, size - done);
        if (count == 0) break;
        done += count;
    }
    return done;
}

void StreamReader::readEverything(InputStream& stream, ByteArray& into, std::size_t limit)
{
    std::array<std::uint8_t, 16384> chunk;
    std::size_t total = 0;
    while (const auto count = stream.read(chunk.data(), chunk.size())) {
        total += count;
        if (limit > 0 && total > limit) {
            throw with(
                RangeException("The stream is longer than allowed"), DetailInfo { "Limit: " + String::number(limit) });
        }
        into.append(chunk.data(), count);
    }
}

bool StreamReader::readLine(InputStream& stream, String& line, std::size_t limit)
{
    std::string text;
    bool any = false;
    for (char byte = 0; stream.read(&byte, 1) == 1;) {
        any = true;
        if (byte == '\n') break;
        text += byte;
        // One byte more than `limit` is taken, since that byte may be the CR of the line end.
        if (limit > 0 && text.size() > limit && (byte != '\r' || text.size() > limit + 1)) {
            throw with(
                RangeException("The line is longer than allowed"), DetailInfo { "Limit: " + String::number(limit) });
        }
    }
    if (text.ends_with('\r')) text.pop_back();
    line = text;
    return any;
}

} // namespace fn
