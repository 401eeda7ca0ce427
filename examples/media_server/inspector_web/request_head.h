#pragma once
#include <string_view>
#include <vector>

namespace media {

/// Where a request wants to go: "/path?query", or the same behind "http://host".
struct RequestTarget {
    explicit RequestTarget(std::string_view text);

    std::string_view host; ///< Empty without one.
    std::string_view path; ///< And what follows it.
};

/// What the beginning of a request says of who asks, before anything is made of the rest, which may be damaged. Borrows the
/// text.
struct RequestHead {
    explicit RequestHead(std::string_view text);

    RequestTarget target;
    std::vector<std::string_view> hosts; ///< The values of all headers of that name, as is the next one.
    std::vector<std::string_view> origins;
};

} // namespace media
