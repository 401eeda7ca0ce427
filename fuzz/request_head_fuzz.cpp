// Any bytes as the head of a request to the web inspector: what is found of it lies in it.
#include "inspector_web/request_head.h"
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    const inspector_web::RequestHead head(text);
    const auto require = [&text](std::string_view part) {
        if (!part.empty() && (part.data() < text.data() || part.data() + part.size() > text.data() + text.size()))
            std::abort();
    };
    for (const auto part : { head.method, head.path, head.query, head.targetHost }) require(part);
    for (const auto part : head.hosts) require(part);
    for (const auto part : head.origins) require(part);
    return 0;
}
