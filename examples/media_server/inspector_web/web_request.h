#pragma once
#include <map>
#include <string>

namespace media {

/// What a browser asks for, decoded and otherwise as it came: from outside.
struct WebRequest {
    std::string path; ///< Below the address that was announced; "" is the first page.
    std::map<std::string, std::string> parameters;
};

struct WebAnswer {
    int status = 200;
    std::string html;
};

} // namespace media
