#pragma once
#include <string_view>
#include <vector>

namespace inspector_web {

/// The request line and the headers of a request that matter here. It may come from anybody, and be damaged. Borrows the text.
struct RequestHead {
    explicit RequestHead(std::string_view text);

    std::string_view method;
    std::string_view targetHost; ///< The host of a target like "http://host/path"; else empty.
    std::string_view path;
    std::string_view query; ///< Behind '?', not decoded.
    std::vector<std::string_view> hosts; ///< The values of all Host headers.
    std::vector<std::string_view> origins; ///< The values of all Origin headers.
};

} // namespace inspector_web
