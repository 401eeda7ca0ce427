#pragma once
#include "foundation/promise.h"
#include <map>
#include <string>

namespace inspector_web {

/// A browser's request, decoded, but not checked: it may come from anybody.
struct WebRequest {
    std::string path; ///< Below the address that was announced; "" is the first page.
    std::map<std::string, std::string> parameters;
};

struct WebAnswer {
    int status = 200;
    std::string html;
};

/// Makes the answer, now or later. The promise does not fail; it is cancelled when the connection ends first.
using Answering = folly::Function<fn::Promise<WebAnswer>(const WebRequest&)>;

} // namespace inspector_web
