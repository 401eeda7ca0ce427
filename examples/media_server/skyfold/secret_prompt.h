#pragma once
#include <string>

namespace media {

/// What was asked for. Overwritten when it goes.
struct Secret {
    Secret() = default;
    Secret(const Secret&) = delete;
    ~Secret();

    std::string text;
};

/// Asks on the terminal for a line that is not shown while it is typed; reads it from standard input where that is no
/// terminal. Gives the number of the signal that came first, else 0. `fn::RuntimeException` where nothing is given, or too much.
int askForSecret(const std::string& question, Secret& secret);

} // namespace media
