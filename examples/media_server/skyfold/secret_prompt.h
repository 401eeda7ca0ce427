#pragma once
#include <string>

namespace media {

/// The secret that the user has typed. Its destructor overwrites it.
struct Secret {
    Secret() = default;
    Secret(const Secret&) = delete;
    ~Secret();

    std::string text;
};

/// Asks on the terminal for a line that is not shown while it is typed; if standard input is no terminal, reads the line from
/// it. Gives the number of the signal that came first, or 0. `fn::RuntimeException` for an empty or too long line.
int askForSecret(const std::string& question, Secret& secret);

} // namespace media
