#pragma once
#include <string_view>

namespace media {

/// A standard stream of this process. Text that is written after a failure is dropped.
class Output {
public:
    explicit Output(int descriptor) : _descriptor(descriptor) { }

    void write(std::string_view text);
    void check() const; ///< Throws the `std::system_error` of a failed write, such as EPIPE without a reader.

    /// Whether the stream is a terminal that can draw a line again, and no "dumb" one.
    bool isTerminal() const;
    int columns() const; ///< The present width of the terminal.

private:
    const int _descriptor;
    int _error = 0; // `errno` of a failed write.
};

} // namespace media
