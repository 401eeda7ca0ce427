#pragma once
#include "base/string.h"
#include <optional>

/// Where the hub of the program that runs can be found by another start of it: a file that only its user can read.
namespace media {

/// Tells the address while it lives.
class HubAddress {
public:
    explicit HubAddress(const fn::String& pipePath); ///< `fn::FileException` where it cannot be written.
    HubAddress(const HubAddress&) = delete;
    HubAddress& operator=(const HubAddress&) = delete;
    ~HubAddress();

    static std::optional<fn::String> find(); ///< That of a program that runs, or that has been killed.
};

} // namespace media
