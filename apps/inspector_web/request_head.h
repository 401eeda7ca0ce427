#pragma once
#include <string_view>
#include <vector>

namespace inspector_web {

/// What the beginning of a request says of who asks and for what; it may come from anybody, and be damaged. Borrows the text.
struct RequestHead {
    explicit RequestHead(std::string_view text);

    std::string_view method;
    std::string_view targetHost; ///< Of a target like "http://host/path"; empty without one.
    std::string_view path;
    std::string_view query; ///< Behind '?', not decoded.
    std::vector<std::string_view> hosts; ///< The values of all headers of that name, as is the next one.
    std::vector<std::string_view> origins;
};

} // namespace inspector_web
