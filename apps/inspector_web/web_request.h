#pragma once
#include "foundation/promise.h"
#include <map>
#include <string>

namespace inspector_web {

/// What a browser asks for, decoded and otherwise as it came: from outside.
struct WebRequest {
    std::string path; ///< Below the address that was announced; "" is the first page.
    std::map<std::string, std::string> parameters;
};

struct WebAnswer {
    int status = 200;
    std::string html;
};

/// Makes the answer, now or later. Does not fail; cancelled where nobody waits for it any more.
using Answering = folly::Function<fn::Promise<WebAnswer>(const WebRequest&)>;

} // namespace inspector_web
