#pragma once
#include "base/exceptions.h"
#include "foundation/io/input_stream.h"

namespace fn {

/// Reads larger units from a stream. Reading lines takes single bytes: put a BufferedInputStream above a file.
class FN_EXPORT StreamReader {
public:
    StreamReader() = delete;

    /// Fills `data` unless the stream ends before; returns the bytes read.
    static std::size_t tryRead(InputStream& stream, void* data, std::size_t size);

    /// Appends the rest of the stream. If that is more than `limit` bytes (0: more than an array can hold): `fn::RangeException`.
    static void readEverything(InputStream& stream, ByteArray& into, std::size_t limit = 0);

    /// The next line without its LF or CRLF; false at the end of the stream. The last line needs no line end. A line of
    /// more than `limit` bytes (0: no limit): `fn::RangeException`.
    static bool readLine(InputStream& stream, String& line, std::size_t limit = 0);
};

} // namespace fn
