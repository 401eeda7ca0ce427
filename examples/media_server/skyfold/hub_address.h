#pragma once
#include "base/string.h"
#include <optional>

/// The address of the running program's hub, for other starts of the program: a file that only its user can read.
namespace media {

/// Keeps the address in the file while this object exists.
class HubAddress {
public:
    explicit HubAddress(const fn::String& pipePath); ///< `fn::FileException` if the file cannot be written.
    HubAddress(const HubAddress&) = delete;
    HubAddress& operator=(const HubAddress&) = delete;
    ~HubAddress();

    static std::optional<fn::String> find(); ///< The address of a program that runs, or was killed.
};

} // namespace media
