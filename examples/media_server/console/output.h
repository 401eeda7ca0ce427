#pragma once
#include <string_view>

namespace media {

/// A standard stream of this process. What is written after a failure vanishes.
class Output {
public:
    explicit Output(int descriptor) : _descriptor(descriptor) { }

    void write(std::string_view text);
    int error() const { return _error; } ///< `errno` of the write that failed, such as EPIPE: nobody reads. Else 0.

    /// Whether lines may be drawn over again: it is a terminal, and no dumb one.
    bool isTerminal() const;
    int columns() const; ///< Of the terminal, as wide as it is now.

private:
    const int _descriptor;
    int _error = 0;
};

} // namespace media
