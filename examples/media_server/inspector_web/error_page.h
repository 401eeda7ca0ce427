#pragma once
#include "inspector_web/web_request.h"
#include <exception>
#include <string_view>

namespace media {

/// Tells people what is wrong, with a way back to the list. Thread-safe.
WebAnswer errorPage(int status, std::string_view text);

/// The same for a failure on the way to an inspector: 504 where time has run out, else 502.
WebAnswer errorPage(std::exception_ptr failure);

} // namespace media
